// The application's surroundings: pasteboard, workspace, folders, status bar, Apple events.
#import "compat.h"
#import "internal.h"

#include <cstdlib>
#include <map>
#include <set>
#include <utility>

namespace zunto::testing {
namespace {

std::vector<std::string>& desktopRequests() {
  static std::vector<std::string> requests;
  return requests;
}

std::string utf8(NSString* string) { return [string UTF8String]; }

}  // namespace

void noteDesktopRequest(const std::string& request) { desktopRequests().push_back(request); }

std::vector<std::string> takeDesktopRequests() { return std::exchange(desktopRequests(), {}); }

}  // namespace zunto::testing

// The application.

namespace {
NSApplicationActivationPolicy activationPolicy = NSApplicationActivationPolicyProhibited;

/// The save panel, which is never freed here. An alert has no panel yet when the backend speaks to it.
std::set<NSWindow*>& windowsThatLetTheProgramEnd() {
  static std::set<NSWindow*> windows;
  return windows;
}
}  // namespace

@implementation NSApplication (ZUNTOCompat)

- (BOOL)setActivationPolicy:(NSApplicationActivationPolicy)policy {
  ::activationPolicy = policy;
  return YES;
}

- (NSApplicationActivationPolicy)activationPolicy {
  return ::activationPolicy;
}

@end

@implementation NSWindow (ZUNTOCompat)

// Nothing is restored here.
- (BOOL)restorable {
  return NO;
}

- (void)setRestorable:(BOOL)restorable {
}

- (BOOL)preventsApplicationTerminationWhenModal {
  return !windowsThatLetTheProgramEnd().contains(self);
}

- (void)setPreventsApplicationTerminationWhenModal:(BOOL)prevents {
  if (prevents) {
    windowsThatLetTheProgramEnd().erase(self);
  } else {
    windowsThatLetTheProgramEnd().insert(self);
  }
}

@end

namespace zunto::testing {
namespace {

using Terminate = void (*)(id, SEL, id);
Terminate originalTerminate;

/// Refuses, as macOS does, while a modal window stands that has not been told otherwise.
void terminate(id application, SEL selector, id sender) {
  NSWindow* dialog = [application modalWindow];
  if (dialog != nil && [dialog preventsApplicationTerminationWhenModal]) {
    noteDesktopRequest("refused to terminate");
    return;
  }
  originalTerminate(application, selector, sender);
}

}  // namespace
}  // namespace zunto::testing

// The pasteboard. GNUstep keeps it in a daemon that all programs of a user share.

@interface ZUNTOPasteboard : NSPasteboard {
  NSMutableDictionary* _contents;
  int _changes;
}
@end

@implementation ZUNTOPasteboard

- (id)init {
  _contents = [[NSMutableDictionary alloc] init];
  return self;
}

- (void)dealloc {
  [_contents release];
  [super dealloc];
}

- (int)declareTypes:(NSArray*)types owner:(id)owner {
  [_contents removeAllObjects];
  return ++_changes;
}

- (int)changeCount {
  return _changes;
}

- (NSArray*)types {
  return [_contents allKeys];
}

- (NSString*)availableTypeFromArray:(NSArray*)types {
  for (NSString* type in types) {
    if ([_contents objectForKey:type] != nil) return type;
  }
  return nil;
}

- (BOOL)setString:(NSString*)string forType:(NSString*)type {
  [_contents setObject:[[string copy] autorelease] forKey:type];
  return YES;
}

- (NSString*)stringForType:(NSString*)type {
  return [_contents objectForKey:type];
}

@end

namespace zunto::testing {
namespace {

id pasteboardWithName(id, SEL, NSString* name) {
  static NSMutableDictionary* pasteboards = [[NSMutableDictionary alloc] init];
  if ([pasteboards objectForKey:name] == nil) {
    [pasteboards setObject:[[[ZUNTOPasteboard alloc] init] autorelease] forKey:name];
  }
  return [pasteboards objectForKey:name];
}

BOOL openUrl(id, SEL, NSURL* url) {
  noteDesktopRequest("open " + utf8([url absoluteString]));
  return YES;
}

NSInteger runSavePanel(id panel, SEL) {
  // The method of the same name without arguments drops the suggested name.
  NSSavePanel* savePanel = panel;
  return [savePanel runModalForDirectory:[savePanel directory] file:[savePanel nameFieldStringValue]];
}

}  // namespace

void putOnPasteboard(NSString* text) {
  [[NSPasteboard generalPasteboard] declareTypes:@[ NSPasteboardTypeString ] owner:nil];
  [[NSPasteboard generalPasteboard] setString:text forType:NSPasteboardTypeString];
}

void clearPasteboard() { [[NSPasteboard generalPasteboard] declareTypes:@[] owner:nil]; }

}  // namespace zunto::testing

// The workspace, the beep and the folders.

@implementation NSWorkspace (ZUNTOCompat)

- (void)activateFileViewerSelectingURLs:(NSArray<NSURL*>*)urls {
  for (NSURL* url in urls) {
    zunto::testing::noteDesktopRequest("reveal " + zunto::testing::utf8([url path]));
  }
}

@end

@implementation NSFileManager (ZUNTOCompat)

- (NSURL*)homeDirectoryForCurrentUser {
  // Of the environment, which a test can change; NSHomeDirectory() asks the account.
  return [NSURL fileURLWithPath:[NSString stringWithUTF8String:std::getenv("HOME")] isDirectory:YES];
}

- (NSURL*)temporaryDirectory {
  return [NSURL fileURLWithPath:NSTemporaryDirectory() isDirectory:YES];
}

@end

// The status bar: a strip at the top of the screen.

@interface ZUNTOStatusItem : NSStatusItem {
  NSPanel* _panel;
  NSStatusBarButton* _statusButton;
  NSMenu* _statusMenu;
}
- (id)initWithButton:(BOOL)hasButton;
@end

@implementation ZUNTOStatusItem

- (id)initWithButton:(BOOL)hasButton {
  const NSRect screen = [[NSScreen mainScreen] frame];
  _panel = [[NSPanel alloc] initWithContentRect:NSMakeRect(NSMaxX(screen) - 120, NSMaxY(screen) - 24, 110, 24)
                                      styleMask:NSBorderlessWindowMask
                                        backing:NSBackingStoreBuffered
                                          defer:NO];
  [_panel setReleasedWhenClosed:NO];
  if (hasButton) {
    _statusButton = [[NSStatusBarButton alloc] initWithFrame:[[_panel contentView] bounds]];
    [_statusButton setBordered:NO];
    [[_panel contentView] addSubview:_statusButton];
  }
  [_panel orderFront:nil];
  return self;
}

- (void)dealloc {
  [_panel close];
  [_statusButton release];
  [_panel release];
  [_statusMenu release];
  [super dealloc];
}

- (NSStatusBarButton*)button {
  return _statusButton;
}

- (NSMenu*)menu {
  return _statusMenu;
}

- (void)setMenu:(NSMenu*)menu {
  [menu retain];
  [_statusMenu release];
  _statusMenu = menu;
}

@end

@implementation NSStatusItem (ZUNTOCompat)

- (NSStatusBarButton*)button {
  return nil;
}

@end

@interface ZUNTOStatusBar : NSStatusBar {
 @public
  ZUNTOStatusItem* _shown;
  BOOL _givesNoButtons;
}
@end

@implementation ZUNTOStatusBar

- (NSStatusItem*)statusItemWithLength:(CGFloat)length {
  if (length != NSVariableStatusItemLength) {
    [NSException raise:NSInvalidArgumentException format:@"items have variable length"];
  }
  ZUNTOStatusItem* item = [[[ZUNTOStatusItem alloc] initWithButton:!_givesNoButtons] autorelease];
  _shown = item;
  return item;
}

- (void)removeStatusItem:(NSStatusItem*)item {
  if (item == _shown) _shown = nil;
}

@end

namespace {
ZUNTOStatusBar* theStatusBar() {
  static ZUNTOStatusBar* bar = [[ZUNTOStatusBar alloc] init];
  return bar;
}
}  // namespace

namespace zunto::testing {
namespace {

/// Takes the place of +[NSStatusBar systemStatusBar], which answers nil here.
id systemStatusBar(id, SEL) { return theStatusBar(); }

/// Takes the place of the backend's beep.
void beep(NSGraphicsContext*, SEL) { noteDesktopRequest("beep"); }

}  // namespace

NSStatusItem* shownStatusItem() { return theStatusBar()->_shown; }

void setStatusItemsHaveButtons(bool haveButtons) { theStatusBar()->_givesNoButtons = !haveButtons; }

}  // namespace zunto::testing

// Apple events.

@interface ZUNTOAppleEvent : NSAppleEventDescriptor {
 @public
  NSString* _text;
  ZUNTOAppleEvent* _directObject;
}
@end

@implementation ZUNTOAppleEvent

- (void)dealloc {
  [_text release];
  [_directObject release];
  [super dealloc];
}

- (NSString*)stringValue {
  return _text;
}

- (NSAppleEventDescriptor*)paramDescriptorForKeyword:(AEKeyword)keyword {
  constexpr AEKeyword directObject = 0x2D2D2D2D;
  return keyword == directObject ? _directObject : nil;
}

@end

@implementation NSAppleEventDescriptor (ZUNTOCompat)

- (NSAppleEventDescriptor*)paramDescriptorForKeyword:(AEKeyword)keyword {
  return nil;
}

- (NSString*)stringValue {
  return nil;
}

@end

namespace {

using EventKey = std::pair<AEEventClass, AEEventID>;

struct EventHandler {
  id target;
  SEL selector;
};

std::map<EventKey, EventHandler>& eventHandlers() {
  static std::map<EventKey, EventHandler> handlers;
  return handlers;
}

}  // namespace

@implementation NSAppleEventManager (ZUNTOCompat)

+ (NSAppleEventManager*)sharedAppleEventManager {
  static NSAppleEventManager* manager = [[self alloc] init];
  return manager;
}

- (void)setEventHandler:(id)handler
            andSelector:(SEL)selector
          forEventClass:(AEEventClass)eventClass
             andEventID:(AEEventID)eventID {
  eventHandlers()[{eventClass, eventID}] = {handler, selector};
}

- (void)removeEventHandlerForEventClass:(AEEventClass)eventClass andEventID:(AEEventID)eventID {
  eventHandlers().erase({eventClass, eventID});
}

@end

namespace zunto::testing {
namespace {

bool deliverGetUrl(ZUNTOAppleEvent* directObject) {
  constexpr AEEventClass getUrl = 0x4755524C;
  const auto found = eventHandlers().find({getUrl, getUrl});
  if (found == eventHandlers().end()) return false;
  ZUNTOAppleEvent* event = [[[ZUNTOAppleEvent alloc] init] autorelease];
  event->_directObject = [directObject retain];
  ZUNTOAppleEvent* reply = [[[ZUNTOAppleEvent alloc] init] autorelease];
  [found->second.target performSelector:found->second.selector withObject:event withObject:reply];
  return true;
}

}  // namespace

bool sendGetUrlEvent(NSString* url) {
  ZUNTOAppleEvent* object = [[[ZUNTOAppleEvent alloc] init] autorelease];
  object->_text = [url copy];
  return deliverGetUrl(object);
}

bool sendGetUrlEventWithoutText() { return deliverGetUrl([[[ZUNTOAppleEvent alloc] init] autorelease]); }

bool sendGetUrlEventWithoutObject() { return deliverGetUrl(nil); }

void installServices() {
  originalTerminate = replaceMethod([NSApplication class], @selector(terminate:), terminate);
  replaceMethod([NSWorkspace class], @selector(openURL:), openUrl);
  replaceMethod(object_getClass([NSPasteboard class]), @selector(pasteboardWithName:), pasteboardWithName);
  replaceMethod([NSSavePanel class], @selector(runModal), runSavePanel);
  replaceMethod(object_getClass([NSStatusBar class]), @selector(systemStatusBar), systemStatusBar);
  // NSBeep() is inline and goes through a table of the graphics context, which the application makes.
  [NSApplication sharedApplication];
  const_cast<gsMethodTable*>(GSCurrentContext()->methods)->NSBeep = beep;
}

void installCompatibility() {
  @autoreleasepool {
    installBlocks();
    installLayout();
    installRunLoop();
    installServices();
  }
}

}  // namespace zunto::testing
