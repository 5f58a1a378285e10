#import "modal_user.h"

#include <gtest/gtest.h>

#include <algorithm>

#import "compat.h"
#import "native_window.h"

@interface ZUNTOModalWatch : NSObject {
 @public
  zunto::testing::ModalUser* _user;
}
- (void)look:(NSTimer*)timer;
@end

@implementation ZUNTOModalWatch

- (void)look:(NSTimer*)timer {
  NSWindow* window = [NSApp modalWindow];
  if (window != nil && [window isVisible]) _user->look(window);
}

@end

namespace zunto::testing {
namespace {

/// The texts of a modal window that are no button's, from its top to its bottom.
std::vector<std::string> textsIn(NSWindow* window) {
  std::vector<NSTextField*> fields;
  for (NSView* view : visibleViews([window contentView])) {
    if (![view isKindOfClass:[NSTextField class]]) continue;
    NSTextField* field = static_cast<NSTextField*>(view);
    if ([[field stringValue] length] > 0) fields.push_back(field);
  }
  std::stable_sort(fields.begin(), fields.end(), [](NSTextField* one, NSTextField* other) {
    return NSMaxY([one frame]) > NSMaxY([other frame]);
  });
  std::vector<std::string> texts;
  for (NSTextField* field : fields) texts.push_back(utf8([field stringValue]));
  return texts;
}

/// The buttons, the default one (at the right end) first.
std::vector<NSButton*> buttonsIn(NSWindow* window) {
  std::vector<NSButton*> buttons;
  for (NSView* view : visibleViews([window contentView])) {
    if (![view isKindOfClass:[NSButton class]]) continue;
    NSButton* button = static_cast<NSButton*>(view);
    const bool isIcon = [button imagePosition] == NSImageOnly;
    if (!isIcon && [[button title] length] > 0) buttons.push_back(button);
  }
  std::stable_sort(buttons.begin(), buttons.end(), [](NSButton* one, NSButton* other) {
    return NSMaxX([one frame]) > NSMaxX([other frame]);
  });
  return buttons;
}

}  // namespace

ModalUser::ModalUser() {
  ZUNTOModalWatch* watch = [[[ZUNTOModalWatch alloc] init] autorelease];
  watch->_user = this;
  timer_ = [[NSTimer timerWithTimeInterval:0.02
                                    target:watch
                                  selector:@selector(look:)
                                  userInfo:nil
                                   repeats:YES] retain];
  [[NSRunLoop currentRunLoop] addTimer:timer_ forMode:NSModalPanelRunLoopMode];
}

ModalUser::~ModalUser() {
  [timer_ invalidate];
  [timer_ release];
}

void ModalUser::look(NSWindow* modalWindow) {
  if (answeredSession_ == modalSessionsBegun() || (mayAnswer_ && !mayAnswer_())) return;
  answeredSession_ = modalSessionsBegun();
  if ([modalWindow isKindOfClass:[NSSavePanel class]]) {
    answer(static_cast<NSSavePanel*>(modalWindow));
  } else {
    answer(modalWindow);
  }
  wakeEventLoop();
}

void ModalUser::answer(NSSavePanel* panel) {
  seen_.push_back({.kind = SeenDialog::Kind::savePanel,
                   .message = utf8([panel title]),
                   .suggestedName = utf8([panel nameFieldStringValue])});
  if (!nextLocation_) ADD_FAILURE() << "a save panel came up that nobody expected";
  const std::optional<std::filesystem::path> location = nextLocation_.value_or(std::nullopt);
  nextLocation_.reset();
  if (!location) {
    [panel cancel:nil];
    return;
  }
  [panel setDirectory:[NSString stringWithUTF8String:location->parent_path().c_str()]];
  [panel setNameFieldStringValue:[NSString stringWithUTF8String:location->filename().c_str()]];
  [panel ok:nil];
}

void ModalUser::answer(NSWindow* alert) {
  SeenDialog dialog{.kind = SeenDialog::Kind::alert};
  const std::vector<std::string> texts = textsIn(alert);
  if (!texts.empty()) dialog.message = texts.front();
  if (texts.size() > 1) dialog.information = texts.back();
  NSButton* chosen = nil;
  for (NSButton* button : buttonsIn(alert)) {
    dialog.buttons.push_back(utf8([button title]));
    if (nextButton_ && dialog.buttons.back() == *nextButton_) chosen = button;
  }
  seen_.push_back(std::move(dialog));
  nextButton_.reset();
  if (chosen == nil) {
    ADD_FAILURE() << "an alert came up that nobody expected, or has no such button: " << seen_.back().message;
    [NSApp abortModal];
    return;
  }
  [chosen performClick:nil];
}

}  // namespace zunto::testing
