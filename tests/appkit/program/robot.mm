// Drives the whole macOS program, from its main() to the end of its process, the way a user would: a list of
// steps, each of which waits for what it needs to see and then does one thing.
#import <Cocoa/Cocoa.h>

#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <vector>

#import "compat.h"
#import "native_window.h"

using namespace zunto::testing;

namespace {

struct Step {
  std::string name;
  std::function<bool()> isTime;
  std::function<void()> act;
};

constexpr double patience = 20;  // seconds for one step

NSWindow* window() { return windowTitled(@"ZUNTO Media Import"); }

bool shows(const std::string& text) {
  return findView(window(), [&](NSView* view) {
           return [view isKindOfClass:[NSTextField class]] &&
                  utf8([static_cast<NSTextField*>(view) stringValue]) == text;
         }) != nil;
}

bool isReady() { return shows("Ready. Processing and browser access stay on this Mac."); }

std::string menuTitle(NSInteger index) {
  NSMenu* menu = [shownStatusItem() menu];
  return index < [menu numberOfItems] ? utf8([[menu itemAtIndex:index] title]) : std::string();
}

void chooseInMenu(NSString* title) {
  NSMenu* menu = [shownStatusItem() menu];
  [menu update];
  [menu performActionForItemAtIndex:[menu indexOfItemWithTitle:title]];
}

void click(const char* title) { [findButton(window(), title) performClick:nil]; }

std::filesystem::path home() { return std::getenv("HOME"); }

std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// Whether the first processor that wrote to the log has ended and was reaped.
bool firstProcessorIsGone() {
  const std::string log = contentsOf(home() / "Library/Logs/ZUNTO Helper/helper.log");
  const std::string mark = "listening as ";
  const std::size_t at = log.find(mark);
  return at != std::string::npos && ::kill(std::atoi(log.c_str() + at + mark.size()), 0) != 0;
}

/// The picture that a person looks at: the window drawn into a file.
void drawWindow() {
  NSView* frame = [[window() contentView] superview];
  [window() display];
  [frame lockFocus];
  NSBitmapImageRep* picture = [[[NSBitmapImageRep alloc] initWithFocusedViewRect:[frame bounds]] autorelease];
  [frame unlockFocus];
  NSData* data = [picture representationUsingType:NSPNGFileType properties:[NSDictionary dictionary]];
  [data writeToFile:@"appkit-import-window.png" atomically:YES];
}

std::vector<Step> launchSteps() {
  return {
      {"the window comes up before the processor answers",
       [] { return [window() isVisible] && shows("Starting the local processor…"); },
       [] { sendGetUrlEvent(@"zunto-helper:?url=https%3A%2F%2Fmedia.example%2Fhanded-over"); }},
      {"the processor is launched and answers", isReady, [] {}},
      {"the link that was handed over stands in the field",
       [] {
         return utf8([findField(window(), "Media link") stringValue]) == "https://media.example/handed-over";
       },
       [] { sendGetUrlEvent(@"https://foreign.example/"); }},
      {"the menu says whose processor it is",
       [] { return menuTitle(0) == "ZUNTO Helper Ready · 127.0.0.1:43127" && menuTitle(4) == "Stop Helper"; },
       [] { [window() performClose:nil]; }},
      {"closing hides the window and nothing else",
       [] { return ![window() isVisible] && menuTitle(4) == "Stop Helper"; },
       [] { chooseInMenu(@"Open Downloader"); }},
      {"the menu shows it again", [] { return [window() isVisible] && isReady(); }, [] {}},
  };
}

bool savePanelStands() {
  return [[NSApp modalWindow] isKindOfClass:[NSSavePanel class]] &&
         utf8([static_cast<NSSavePanel*>([NSApp modalWindow]) nameFieldStringValue]) == "A Film.mp4";
}

/// Up to the job that is under way.
std::vector<Step> downloadSteps() {
  return {
      {"a link is typed and analysed", [] { return [findButton(window(), "Analyze") isEnabled] == YES; },
       [] {
         typeInto(findField(window(), "Media link"), @"https://media.example/film");
         [NSApp sendEvent:keyPress(window(), @"\r", 0)];
       }},
      {"the form is filled", [] { return shows("A Film") && shows("Duration: 1:01"); },
       [] {
         drawWindow();
         click("Download…");
       }},
      {"the job's stage is shown", [] { return shows("Fetching"); }, [] {}},
  };
}

std::vector<Step> saveSteps(const std::filesystem::path& saved) {
  return {
      {"the panel comes up with the processor's name", savePanelStands,
       [saved] {
         NSSavePanel* panel = static_cast<NSSavePanel*>([NSApp modalWindow]);
         [panel setDirectory:[NSString stringWithUTF8String:saved.parent_path().c_str()]];
         [panel ok:nil];
         wakeEventLoop();
       }},
      {"the file is saved where the user said",
       [saved] { return shows("Saved to " + saved.string()) && contentsOf(saved) == "the film"; },
       [] { click("Show Downloaded File"); }},
      {"the file viewer is asked for it",
       [saved] { return takeDesktopRequests() == std::vector<std::string>{"reveal " + saved.string()}; },
       [] {
         [[findPopUp(window(), "Save as") menu] performActionForItemAtIndex:1];
         click("Download…");
       }},
      {"a job that takes long can be cancelled", [] { return shows("Fetching"); }, [] { click("Cancel"); }},
      {"the cancellation is reported", [] { return shows("Download cancelled."); }, [] {}},
  };
}

std::vector<Step> stopSteps() {
  return {
      {"the helper is stopped from the menu", [] { return menuTitle(4) == "Stop Helper"; },
       [] { chooseInMenu(@"Stop Helper"); }},
      {"the menu shows that it is stopped",
       [] { return menuTitle(0) == "ZUNTO Helper Stopped" && menuTitle(4) == "Start Helper"; }, [] {}},
      // Two processors would write over each other's lines in the log, which is looked at in the end; and the
      // end notice of the first, coming late, would let go of the second.
      {"the stopped processor is gone", firstProcessorIsGone, [] {}},
      {"its end has been noticed", [] { return true; }, [] { chooseInMenu(@"Start Helper"); }},
      {"it is started again from the menu",
       [] { return menuTitle(0) == "ZUNTO Helper Ready · 127.0.0.1:43127"; }, [] {}},
  };
}

}  // namespace

@interface ZUNTORobot : NSObject {
 @public
  std::vector<Step> _steps;
  std::size_t _done;
  NSDate* _since;
}
- (void)look:(NSTimer*)timer;
@end

@implementation ZUNTORobot

- (void)look:(NSTimer*)timer {
  if (_done == _steps.size()) return;
  const Step step = _steps[_done];
  if (!step.isTime()) {
    if (-[_since timeIntervalSinceNow] < patience) return;
    std::printf("FAILED: %s\n", step.name.c_str());
    drawWindow();
    std::fflush(stdout);
    ::_exit(1);
  }
  std::printf("ok %s\n", step.name.c_str());
  ++_done;
  if (_done == _steps.size()) std::printf("AppKit program: %zu steps\n", _done);
  std::fflush(stdout);
  [_since release];
  _since = [[NSDate date] retain];
  step.act();
}

@end

namespace {

/// From launch to the quit command, through everything that a user does.
std::vector<Step> wholeDay() {
  std::vector<Step> day;
  for (const auto& part : {launchSteps(), downloadSteps(), saveSteps(home() / "A Film.mp4"), stopSteps()}) {
    day.insert(day.end(), part.begin(), part.end());
  }
  day.push_back(
      {"the program is asked to quit", [] { return true; }, [] { chooseInMenu(@"Quit ZUNTO Helper"); }});
  return day;
}

/// The system ends the program while a task waits for the save panel.
std::vector<Step> endUnderAPanel() {
  std::vector<Step> day = {{"the processor is launched and answers", isReady, [] {}}};
  const std::vector<Step> download = downloadSteps();
  day.insert(day.end(), download.begin(), download.end());
  day.push_back(
      {"the system ends the program while the panel stands", savePanelStands, [] { ::raise(SIGTERM); }});
  return day;
}

}  // namespace

extern "C" int realMain(int argc, char** argv) __asm__("__real_main");
extern "C" int wrappedMain(int argc, char** argv) __asm__("__wrap_main");

int wrappedMain(int argc, char** argv) {
  installCompatibility();
  @autoreleasepool {
    const char* day = std::getenv("ZUNTO_ROBOT_DAY");
    ZUNTORobot* robot = [[ZUNTORobot alloc] init];
    robot->_since = [[NSDate date] retain];
    robot->_steps = day != nullptr && std::string(day) == "end-under-a-panel" ? endUnderAPanel() : wholeDay();
    NSTimer* timer = [NSTimer timerWithTimeInterval:0.02
                                             target:robot
                                           selector:@selector(look:)
                                           userInfo:nil
                                            repeats:YES];
    [[NSRunLoop currentRunLoop] addTimer:timer forMode:NSRunLoopCommonModes];
  }
  return realMain(argc, argv);
}
