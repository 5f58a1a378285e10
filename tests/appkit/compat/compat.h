// The layer that lets the macOS backend run on GNUstep in tests: what GNUstep lacks or does otherwise, and
// what a test asks of the stand-ins.
//
// Objective-C++, manual reference counting, gcc's runtime. Thread: main thread only.
#pragma once

#import <Cocoa/Cocoa.h>

#include <string>
#include <vector>

namespace zunto::testing {

/// Puts the layer in place. First thing in the test's main: earlier, GNUstep's own classes are not ready.
void installCompatibility();

/// What the program has asked of the desktop since the last call: "open ADDRESS", "reveal PATH", "beep".
[[nodiscard]] std::vector<std::string> takeDesktopRequests();

/// The text on the general pasteboard; the pasteboard is one of this process, not the user's.
void putOnPasteboard(NSString* text);
void clearPasteboard();

/// Delivers a GetURL event to the installed handler, as the system would; answers whether there was one.
bool sendGetUrlEvent(NSString* url);

/// The same with a direct object that is no text, and without any direct object.
bool sendGetUrlEventWithoutText();
bool sendGetUrlEventWithoutObject();

/// How many modal sessions have begun so far: one that was told to end stands a moment longer.
[[nodiscard]] int modalSessionsBegun();

/// The item that the status bar shows now; nil when there is none.
[[nodiscard]] NSStatusItem* shownStatusItem();

/// From now on the bar gives items without a button (or with one again).
void setStatusItemsHaveButtons(bool haveButtons);

}  // namespace zunto::testing
