#import "platform/appkit/app_kit_window_system.h"

#import <Cocoa/Cocoa.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "async/main_thread.h"
#import "platform/appkit/retained.h"
#import "platform/appkit/text.h"
#import "platform/appkit/views.h"

NS_ASSUME_NONNULL_BEGIN

/// Commands that a window answers to; not every version of the system's headers declares them.
@protocol ZUNTOUndoCommands
- (void)undo:(id)sender;
- (void)redo:(id)sender;
@end

/// A window that knows the usual editing and window commands by their keys. Elsewhere these come from the
/// main menu, and the program has none.
@interface ZUNTOWindow : NSWindow {
 @private
  zunto::MainThread _mainThread;
}
- (BOOL)performKeyEquivalent:(NSEvent*)event;
@end

/// What stands behind a window's controls, and takes the texts that are dropped on any of them.
@interface ZUNTODropView : NSView {
 @private
  std::function<bool()> _isOpen;
  std::function<void(NSString*)> _dropped;
  zunto::MainThread _mainThread;
}
/// `isOpen` says whether a text may be dropped now.
- (instancetype)initWithIsOpen:(std::function<bool()>)isOpen dropped:(std::function<void(NSString*)>)dropped;
@end

/// Tells of the window's end.
@interface ZUNTOWindowDelegate : NSObject <NSWindowDelegate> {
 @private
  std::function<void()> _willClose;
  zunto::MainThread _mainThread;
}
- (instancetype)initWithWillClose:(std::function<void()>)willClose;
@end

NS_ASSUME_NONNULL_END

namespace zunto {
namespace {

/// The command that Command with this key stands for; none for any other key.
SEL commandForKey(NSString* key, bool withShift) {
  if (withShift) return [key isEqualToString:@"z"] ? @selector(redo:) : nullptr;
  if ([key isEqualToString:@"x"]) return @selector(cut:);
  if ([key isEqualToString:@"c"]) return @selector(copy:);
  if ([key isEqualToString:@"v"]) return @selector(paste:);
  if ([key isEqualToString:@"a"]) return @selector(selectAll:);
  if ([key isEqualToString:@"z"]) return @selector(undo:);
  if ([key isEqualToString:@"w"]) return @selector(performClose:);
  if ([key isEqualToString:@"m"]) return @selector(performMiniaturize:);
  return nullptr;
}

/// The first line that is not blank of what is dragged; none where there is no text at all.
NSString* _Nullable droppedText(id<NSDraggingInfo> drag) {
  NSString* text = [[drag draggingPasteboard] stringForType:NSPasteboardTypeString];
  for (NSString* each in [text componentsSeparatedByCharactersInSet:[NSCharacterSet newlineCharacterSet]]) {
    NSString* line = [each stringByTrimmingCharactersInSet:[NSCharacterSet whitespaceCharacterSet]];
    if ([line length] > 0) return line;
  }
  return nil;
}

}  // namespace
}  // namespace zunto

@implementation ZUNTODropView

- (instancetype)initWithIsOpen:(std::function<bool()>)isOpen dropped:(std::function<void(NSString*)>)dropped {
  self = [super initWithFrame:NSZeroRect];
  if (self) {
    _isOpen = std::move(isOpen);
    _dropped = std::move(dropped);
    [self registerForDraggedTypes:@[ NSPasteboardTypeString ]];
  }
  return self;
}

/// As a copy: a move would take the text away from where it came from.
- (NSDragOperation)draggingEntered:(id<NSDraggingInfo>)drag {
  _mainThread.check("draggingEntered:");
  const bool canCopy = ([drag draggingSourceOperationMask] & NSDragOperationCopy) != 0;
  return canCopy && _isOpen() && zunto::droppedText(drag) != nil ? NSDragOperationCopy : NSDragOperationNone;
}

- (BOOL)performDragOperation:(id<NSDraggingInfo>)drag {
  _mainThread.check("performDragOperation:");
  NSString* text = zunto::droppedText(drag);
  if (text == nil) return NO;
  _dropped(text);
  return YES;
}

@end

@implementation ZUNTOWindow

- (BOOL)performKeyEquivalent:(NSEvent*)event {
  _mainThread.check("performKeyEquivalent:");
  if ([super performKeyEquivalent:event]) return YES;
  constexpr NSEventModifierFlags relevant = NSEventModifierFlagCommand | NSEventModifierFlagShift |
                                            NSEventModifierFlagOption | NSEventModifierFlagControl;
  const NSEventModifierFlags pressed = [event modifierFlags] & relevant;
  const bool withShift = (pressed & NSEventModifierFlagShift) != 0;
  if ((pressed & ~static_cast<NSEventModifierFlags>(NSEventModifierFlagShift)) !=
      NSEventModifierFlagCommand) {
    return NO;
  }
  // Not the characters without modifiers: with Command held, a layout of another script gives Latin letters.
  NSString* key = [[event characters] lowercaseString];
  const SEL command = key == nil ? nullptr : zunto::commandForKey(key, withShift);
  return command != nullptr && [[NSApplication sharedApplication] sendAction:command to:nil from:self];
}

@end

@implementation ZUNTOWindowDelegate

- (instancetype)initWithWillClose:(std::function<void()>)willClose {
  self = [super init];
  if (self) _willClose = std::move(willClose);
  return self;
}

- (void)windowWillClose:(NSNotification*)notification {
  _mainThread.check("windowWillClose:");
  _willClose();
}

@end

namespace zunto {
namespace {

NSSize nativeSize(const Size& size) { return NSMakeSize(size.width, size.height); }

class AppKitWindowView final : public WindowView {
 public:
  explicit AppKitWindowView(Window& model)
      : model_(model),
        content_(makeStackView(model.spec().content)),
        native_(makeWindow(model.spec())),
        outer_(makeOuterView(model.spec())),
        delegate_(Retained<ZUNTOWindowDelegate>::adopt(
            [[ZUNTOWindowDelegate alloc] initWithWillClose:[&model] { model.userClosed(); }])),
        shown_(model.showRequests()),
        centered_(model.centerRequests()) {
    [native_.get() setDelegate:delegate_.get()];
    layOut();
    subscription_ = model.observe([this] { mirror(); });
  }
  ~AppKitWindowView() override {
    [native_.get() setDelegate:nil];
    [native_.get() close];
  }

 private:
  static Retained<NSWindow> makeWindow(const WindowSpec& spec) {
    const NSRect content = {NSZeroPoint, nativeSize(spec.contentSize)};
    constexpr NSWindowStyleMask style = NSWindowStyleMaskTitled | NSWindowStyleMaskClosable |
                                        NSWindowStyleMaskMiniaturizable | NSWindowStyleMaskResizable;
    auto window = Retained<NSWindow>::adopt([[ZUNTOWindow alloc] initWithContentRect:content
                                                                           styleMask:style
                                                                             backing:NSBackingStoreBuffered
                                                                               defer:NO]);
    [window.get() setReleasedWhenClosed:NO];
    [window.get() setRestorable:NO];
    [window.get() setTitle:toNSString(spec.title).get()];
    [window.get() setMinSize:nativeSize(spec.minimumSize)];
    [window.get() setAutorecalculatesKeyViewLoop:YES];
    return window;
  }

  static Retained<NSView> makeOuterView(const WindowSpec& spec) {
    TextField* field = spec.dropField;
    if (field == nullptr) return Retained<NSView>::adopt([[NSView alloc] initWithFrame:NSZeroRect]);
    return Retained<NSView>::adopt([[ZUNTODropView alloc]
        initWithIsOpen:[field] { return field->isEnabled(); }
        dropped:[field](NSString* text) { field->userEdited(toUtf8(text)); }]);
  }

  void layOut() {
    NSView* outer = outer_.get();
    [native_.get() setContentView:outer];
    NSView* inner = content_->view();
    const Insets& insets = model_.spec().insets;
    [inner setTranslatesAutoresizingMaskIntoConstraints:NO];
    [outer addSubview:inner];
    [NSLayoutConstraint activateConstraints:@[
      [[inner leadingAnchor] constraintEqualToAnchor:[outer leadingAnchor] constant:insets.leading],
      [[inner trailingAnchor] constraintEqualToAnchor:[outer trailingAnchor] constant:-insets.trailing],
      [[inner topAnchor] constraintEqualToAnchor:[outer topAnchor] constant:insets.top],
      [[inner bottomAnchor] constraintLessThanOrEqualToAnchor:[outer bottomAnchor]
                                                     constant:-insets.minimumBottom],
    ]];
    const std::vector<NSView*> column = content_->column();
    for (NSView* view : column) {
      if (view == column.front()) continue;
      [[[view widthAnchor] constraintEqualToAnchor:[column.front() widthAnchor]] setActive:YES];
    }
  }

  void mirror() {
    if (std::exchange(shown_, model_.showRequests()) != model_.showRequests()) {
      if ([native_.get() isMiniaturized]) [native_.get() deminiaturize:nil];
      [native_.get() makeKeyAndOrderFront:nil];
    }
    if (std::exchange(centered_, model_.centerRequests()) != model_.centerRequests()) {
      [native_.get() center];
    }
  }

  Window& model_;
  std::unique_ptr<ViewBinding> content_;
  Retained<NSWindow> native_;
  Retained<NSView> outer_;
  Retained<ZUNTOWindowDelegate> delegate_;
  std::uint64_t shown_;
  std::uint64_t centered_;
  Observable::Subscription subscription_;
};

}  // namespace

std::unique_ptr<WindowView> AppKitWindowSystem::makeView(Window& window) {
  return std::make_unique<AppKitWindowView>(window);
}

}  // namespace zunto
