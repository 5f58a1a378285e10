// The macOS face of the program, driven by its native controls.
#import <Cocoa/Cocoa.h>

#include <algorithm>

#import "compat.h"
#import "modal_user.h"
#import "native_window.h"
#include "platform/appkit/app_kit_beeper.h"
#include "platform/appkit/app_kit_clock.h"
#include "platform/appkit/app_kit_dialogs.h"
#include "platform/appkit/app_kit_pasteboard.h"
#include "platform/appkit/app_kit_status_bar.h"
#include "platform/appkit/app_kit_url_events.h"
#include "platform/appkit/app_kit_window_system.h"
#include "platform/appkit/app_kit_workspace.h"
#include "tests/faces/face.h"

/// A drag of what is on the general pasteboard.
@interface ZUNTODrag : NSObject
- (NSPasteboard*)draggingPasteboard;
- (NSDragOperation)draggingSourceOperationMask;
@end

@implementation ZUNTODrag
- (NSPasteboard*)draggingPasteboard {
  return [NSPasteboard generalPasteboard];
}
- (NSDragOperation)draggingSourceOperationMask {
  return NSDragOperationCopy | NSDragOperationMove;
}
@end

namespace zunto::testing {
namespace {

using Kind = SeenControl::Kind;

NSWindow* importWindow() { return windowTitled(@"ZUNTO Media Import"); }

void readControl(NSControl* native, SeenControl& seen) {
  seen.isEnabled = [native isEnabled];
  if ([native isKindOfClass:[NSPopUpButton class]]) {
    NSPopUpButton* popUp = static_cast<NSPopUpButton*>(native);
    seen.kind = Kind::popUp;
    seen.text = utf8([popUp titleOfSelectedItem]);
    for (NSString* title in [popUp itemTitles]) seen.items.push_back(utf8(title));
    if ([popUp indexOfSelectedItem] >= 0) {
      seen.selection = static_cast<std::size_t>([popUp indexOfSelectedItem]);
    }
  } else if ([native isKindOfClass:[NSButton class]]) {
    NSButton* button = static_cast<NSButton*>(native);
    seen.kind = [button isBordered] ? Kind::button : Kind::checkBox;
    seen.text = utf8([button title]);
    seen.isOn = [button state] == NSControlStateValueOn;
  } else {
    NSTextField* field = static_cast<NSTextField*>(native);
    seen.kind = [field isEditable] ? Kind::field : Kind::label;
    seen.text = utf8([field stringValue]);
  }
}

std::optional<SeenControl> readView(NSView* view, NSView* content) {
  SeenControl seen;
  if ([view isKindOfClass:[NSBox class]]) {
    seen.kind = Kind::separator;
  } else if ([view isKindOfClass:[NSProgressIndicator class]]) {
    seen.kind = Kind::progress;
    seen.value = [static_cast<NSProgressIndicator*>(view) doubleValue];
  } else if ([view isKindOfClass:[NSTextField class]] || [view isKindOfClass:[NSButton class]]) {
    readControl(static_cast<NSControl*>(view), seen);
  } else {
    return std::nullopt;
  }
  seen.name = utf8([view accessibilityLabel]);
  const NSRect frame = [content convertRect:[view bounds] fromView:view];
  seen.x = NSMinX(frame);
  seen.y = NSMaxY([content bounds]) - NSMaxY(frame);
  seen.width = NSWidth(frame);
  seen.height = NSHeight(frame);
  return seen;
}

class AppKitWindowDriver final : public WindowDriver {
 public:
  SeenWindow look() override {
    NSWindow* window = importWindow();
    NSView* content = [window contentView];
    SeenWindow seen{.isVisible = [window isVisible] == YES,
                    .title = utf8([window title]),
                    .contentWidth = NSWidth([content bounds]),
                    .contentHeight = NSHeight([content bounds])};
    for (NSView* view : visibleViews(content)) {
      if (auto control = readView(view, content)) seen.controls.push_back(std::move(*control));
    }
    return seen;
  }

  void click(const std::string& title) override { [findButton(importWindow(), title) performClick:nil]; }

  void type(const std::string& name, const std::string& text) override {
    typeInto(findField(importWindow(), name), [NSString stringWithUTF8String:text.c_str()]);
  }

  void choose(const std::string& name, std::size_t index) override {
    NSPopUpButton* popUp = findPopUp(importWindow(), name);
    if (popUp == nil || ![popUp isEnabled]) return;
    [[popUp menu] performActionForItemAtIndex:static_cast<NSInteger>(index)];
  }

  void drop(const std::string& text) override {
    putOnPasteboard([NSString stringWithUTF8String:text.c_str()]);
    ZUNTODrag* drag = [[[ZUNTODrag alloc] init] autorelease];
    NSView* under = [importWindow() contentView];
    if ([under draggingEntered:(id<NSDraggingInfo>)drag] == NSDragOperationCopy) {
      [under performDragOperation:(id<NSDraggingInfo>)drag];
    }
    clearPasteboard();
  }

  void pressReturn() override { [NSApp sendEvent:keyPress(importWindow(), @"\r", 0)]; }

  void close() override { [importWindow() performClose:nil]; }
};

class AppKitStatusDriver final : public StatusDriver {
 public:
  std::string title() override { return utf8([[shownStatusItem() button] title]); }

  std::vector<SeenMenuItem> openMenu() override {
    NSMenu* menu = [shownStatusItem() menu];
    [menu update];
    std::vector<SeenMenuItem> items;
    for (NSMenuItem* item in [menu itemArray]) {
      items.push_back({.isSeparator = [item isSeparatorItem] == YES,
                       .title = [item isSeparatorItem] ? std::string() : utf8([item title]),
                       .isEnabled = [item isEnabled] == YES,
                       .keyEquivalent = utf8([item keyEquivalent])});
    }
    return items;
  }

  void choose(const std::string& title) override {
    NSMenu* menu = [shownStatusItem() menu];
    [menu update];
    const NSInteger index = [menu indexOfItemWithTitle:[NSString stringWithUTF8String:title.c_str()]];
    if (index >= 0 && [[menu itemAtIndex:index] isEnabled]) [menu performActionForItemAtIndex:index];
  }
};

class AppKitDesktopDriver final : public DesktopDriver {
 public:
  /// Forgets what an earlier case has left.
  AppKitDesktopDriver() : earlier_(takeDesktopRequests()) { clearPasteboard(); }

  void setPasteboard(std::optional<std::string> text) override {
    clearPasteboard();
    if (text) putOnPasteboard([NSString stringWithUTF8String:text->c_str()]);
  }

  void deliverLink(const std::string& link) override {
    sendGetUrlEvent([NSString stringWithUTF8String:link.c_str()]);
  }

  std::vector<std::string> requests() override {
    for (std::string& request : takeDesktopRequests()) requests_.push_back(std::move(request));
    return requests_;
  }

 private:
  std::vector<std::string> earlier_;
  std::vector<std::string> requests_;
};

/// Frees, at the end of a case, what was left to be freed later in it: else its windows would live on.
class ReleasePool {
 public:
  ReleasePool() : pool_([[NSAutoreleasePool alloc] init]) {}
  ReleasePool(const ReleasePool&) = delete;
  ReleasePool& operator=(const ReleasePool&) = delete;
  ~ReleasePool() { [pool_ drain]; }

 private:
  NSAutoreleasePool* pool_;
};

class AppKitFace final : public Face {
 public:
  FaceCapabilities capabilities() override {
    return {.windowSystem = windowSystem_,
            .statusBar = statusBar_,
            .alerts = alerts_,
            .savePanels = savePanels_,
            .pasteboard = pasteboard_,
            .beeper = beeper_,
            .workspace = workspace_,
            .urlEvents = urlEvents_};
  }
  WindowDriver& window() override { return window_; }
  StatusDriver& status() override { return status_; }
  DialogDriver& dialogs() override { return dialogs_; }
  DesktopDriver& desktop() override { return desktop_; }

  void runNativeLoop() override {
    bool isDrained = false;
    clock_.post([&] { isDrained = true; });
    if (!runEventLoopUntil([&] { return isDrained; })) std::abort();
  }

 private:
  ReleasePool pool_;
  AppKitClock clock_;
  AppKitWindowSystem windowSystem_;
  AppKitStatusBar statusBar_;
  AppKitAlertPresenter alerts_{clock_};
  AppKitSavePanelPresenter savePanels_{clock_};
  AppKitPasteboard pasteboard_;
  AppKitBeeper beeper_;
  AppKitWorkspace workspace_;
  AppKitUrlEvents urlEvents_{clock_};
  AppKitWindowDriver window_;
  AppKitStatusDriver status_;
  ModalUser dialogs_;
  AppKitDesktopDriver desktop_;
};

}  // namespace

std::unique_ptr<Face> makeFace() { return std::make_unique<AppKitFace>(); }

}  // namespace zunto::testing

int main(int argc, char** argv) {
  zunto::testing::installCompatibility();
  @autoreleasepool {
    [[NSApplication sharedApplication] finishLaunching];
    return zunto::testing::runFaceCases(argc, argv, "AppKit");
  }
}
