// How a test finds its way in the native windows of the macOS backend.
//
// Objective-C++, manual reference counting. Thread: main thread only.
#pragma once

#import <Cocoa/Cocoa.h>

#include <functional>
#include <string>
#include <vector>

namespace zunto::testing {

[[nodiscard]] inline std::string utf8(NSString* string) {
  return string == nil ? std::string() : std::string([string UTF8String]);
}

/// The program's window with this title, visible or not; nil when there is none.
[[nodiscard]] NSWindow* windowTitled(NSString* title);

/// Every view below `view` in the order of the rows; hidden ones, and what they hold, left out.
[[nodiscard]] std::vector<NSView*> visibleViews(NSView* view);

/// The first visible view for which `matches` answers true; nil when there is none.
[[nodiscard]] NSView* findView(NSWindow* window, const std::function<bool(NSView*)>& matches);

[[nodiscard]] NSButton* findButton(NSWindow* window, const std::string& title);
[[nodiscard]] NSPopUpButton* findPopUp(NSWindow* window, const std::string& name);
[[nodiscard]] NSTextField* findField(NSWindow* window, const std::string& name);

/// A press of one key, as the window server would report it.
[[nodiscard]] NSEvent* keyPress(NSWindow* window, NSString* characters, NSUInteger modifiers);

/// Types into the field by its editor, in the place of what it holds.
void typeInto(NSTextField* field, NSString* text);

/// Runs the event loop until `isDone` answers true; answers false after `seconds` without that.
bool runEventLoopUntil(const std::function<bool()>& isDone, double seconds = 10);

/// Makes a modal session look at its state now: ending one inside a timer is noticed with the next event.
void wakeEventLoop();

}  // namespace zunto::testing
