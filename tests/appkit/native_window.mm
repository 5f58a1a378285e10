#import "native_window.h"

namespace zunto::testing {

NSWindow* windowTitled(NSString* title) {
  for (NSWindow* window in [NSApp windows]) {
    if ([[window title] isEqualToString:title] && ([window styleMask] & NSTitledWindowMask) != 0)
      return window;
  }
  return nil;
}

std::vector<NSView*> visibleViews(NSView* view) {
  std::vector<NSView*> views;
  for (NSView* child in [view subviews]) {
    if ([child isHidden]) continue;
    views.push_back(child);
    const std::vector<NSView*> below = visibleViews(child);
    views.insert(views.end(), below.begin(), below.end());
  }
  return views;
}

NSView* findView(NSWindow* window, const std::function<bool(NSView*)>& matches) {
  for (NSView* view : visibleViews([window contentView])) {
    if (matches(view)) return view;
  }
  return nil;
}

NSButton* findButton(NSWindow* window, const std::string& title) {
  return static_cast<NSButton*>(findView(window, [&](NSView* view) {
    if (![view isKindOfClass:[NSButton class]] || [view isKindOfClass:[NSPopUpButton class]]) return false;
    return utf8([static_cast<NSButton*>(view) title]) == title;
  }));
}

NSPopUpButton* findPopUp(NSWindow* window, const std::string& name) {
  return static_cast<NSPopUpButton*>(findView(window, [&](NSView* view) {
    return [view isKindOfClass:[NSPopUpButton class]] && utf8([view accessibilityLabel]) == name;
  }));
}

NSTextField* findField(NSWindow* window, const std::string& name) {
  return static_cast<NSTextField*>(findView(window, [&](NSView* view) {
    return [view isKindOfClass:[NSTextField class]] && [static_cast<NSTextField*>(view) isEditable] &&
           utf8([view accessibilityLabel]) == name;
  }));
}

NSEvent* keyPress(NSWindow* window, NSString* characters, NSUInteger modifiers) {
  return [NSEvent keyEventWithType:NSKeyDown
                          location:NSZeroPoint
                     modifierFlags:modifiers
                         timestamp:0
                      windowNumber:[window windowNumber]
                           context:[window graphicsContext]
                        characters:characters
       charactersIgnoringModifiers:characters
                         isARepeat:NO
                           keyCode:0];
}

void typeInto(NSTextField* field, NSString* text) {
  if (field == nil || ![field isEnabled]) return;
  [[field window] makeFirstResponder:field];
  NSText* editor = [field currentEditor];
  [editor selectAll:nil];
  [editor insertText:text];
}

bool runEventLoopUntil(const std::function<bool()>& isDone, double seconds) {
  NSDate* end = [NSDate dateWithTimeIntervalSinceNow:seconds];
  while (!isDone()) {
    if ([end timeIntervalSinceNow] < 0) return false;
    @autoreleasepool {
      NSEvent* event = [NSApp nextEventMatchingMask:NSEventMaskAny
                                          untilDate:[NSDate dateWithTimeIntervalSinceNow:0.01]
                                             inMode:NSDefaultRunLoopMode
                                            dequeue:YES];
      if (event != nil) [NSApp sendEvent:event];
    }
  }
  return true;
}

void wakeEventLoop() {
  [NSApp postEvent:[NSEvent otherEventWithType:NSEventTypeApplicationDefined
                                      location:NSZeroPoint
                                 modifierFlags:0
                                     timestamp:0
                                  windowNumber:0
                                       context:nil
                                       subtype:0
                                         data1:0
                                         data2:0]
           atStart:NO];
}

}  // namespace zunto::testing
