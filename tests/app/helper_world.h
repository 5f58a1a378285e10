// The whole world of the supervisor as a test scripts it: clock, files, children, the port, desktop and user.
//
// At first a complete application is installed, nobody listens on the port, children run until they are ended
// or receive a signal. Owner: the test. Thread: main thread only.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "app/entry.h"
#include "app/helper_delegate.h"
#include "recorded_platform.h"
#include "tests/fakes/fake_alerts.h"
#include "tests/fakes/fake_application.h"
#include "tests/fakes/fake_beeper.h"
#include "tests/fakes/fake_command_runner.h"
#include "tests/fakes/fake_file_system.h"
#include "tests/fakes/fake_host_environment.h"
#include "tests/fakes/fake_pasteboard.h"
#include "tests/fakes/fake_process_spawner.h"
#include "tests/fakes/fake_save_panels.h"
#include "tests/fakes/fake_status_bar.h"
#include "tests/fakes/fake_url_events.h"
#include "tests/fakes/fake_window_system.h"
#include "tests/fakes/fake_workspace.h"
#include "tests/fakes/scripted_health.h"
#include "tests/fakes/scripted_http_session.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto::testing {

inline const std::filesystem::path resourcesFolder = "/app/resources";
inline const std::filesystem::path toolFolder = resourcesFolder / "runtime/bin";
inline const std::filesystem::path scriptFile = resourcesFolder / "processor/src/index.mjs";
inline const std::filesystem::path logFolder = "/home/user/Library/Logs/ZUNTO Helper";
inline const std::filesystem::path logFile = logFolder / "helper.log";

inline constexpr std::size_t okButton = 0;
inline constexpr std::size_t showLogButton = 1;

/// What the user sees in the bar and the menu.
struct Display {
  std::string statusLine;
  std::string toggleTitle;
  bool toggleEnabled = false;
  std::string barTitle;

  bool operator==(const Display&) const = default;
  friend void PrintTo(const Display& display, std::ostream* out) {
    *out << '"' << display.statusLine << "\", \"" << display.toggleTitle << "\" "
         << (display.toggleEnabled ? "enabled" : "disabled") << ", \"" << display.barTitle << '"';
  }
};

inline const Display startingDisplay{"Starting ZUNTO Helper\u2026", "Stop Helper", true, "Z/UNTO"};
inline const Display readyDisplay{"ZUNTO Helper Ready \u00B7 127.0.0.1:43127", "Stop Helper", true,
                                  "Z/UNTO \u25CF"};
inline const Display foreignDisplay{"ZUNTO Helper Ready \u00B7 127.0.0.1:43127",
                                    "Helper managed by another process", false, "Z/UNTO \u25CF"};
inline const Display stoppedDisplay{"ZUNTO Helper Stopped", "Start Helper", true, "Z/UNTO"};
/// What no code writes: an update that is left out leaves it visible.
inline const Display scribbledDisplay{"scribbled line", "scribbled toggle", false, "scribbled bar"};

enum class WindowUse { none, real };

class HelperWorld {
 public:
  /// With WindowUse::none the delegate gets no import window, so that nothing asks for a processor by itself;
  /// else it is made as the program's entry makes it.
  explicit HelperWorld(WindowUse windowUse = WindowUse::none) {
    for (const char* tool : {"node", "yt-dlp", "ffmpeg", "ffprobe"}) files.addExecutable(toolFolder / tool);
    files.addFile(scriptFile);
    http.answerAlways("GET", "/health", {.headers = {{"X-ZUNTO-Session-Token", "token"}}});
    delegate = windowUse == WindowUse::real ? makeHelperDelegate(fixedAddresses(), backends())
                                            : delegateWithoutWindow();
  }
  HelperWorld(const HelperWorld&) = delete;
  HelperWorld& operator=(const HelperWorld&) = delete;

  Journal journal;
  VirtualClock clock;
  FakeFileSystem files;
  FakeProcessSpawner spawner{clock, files};
  FakeCommandRunner commands;
  ScriptedHealth health{commands};
  FakeHostEnvironment host;
  FakeStatusBar statusBar;
  FakeUrlEvents urlEvents{clock};
  FakeAlerts alerts{clock};
  FakeApplication application;
  FakeWorkspace workspace;
  FakeWindowSystem windowSystem;
  FakeSavePanels savePanels{clock};
  FakePasteboard pasteboard;
  FakeBeeper beeper;
  ScriptedHttpSession http{clock};

  RecordedClock loop{clock, journal};
  RecordedFiles recordedFiles{files, files, journal};
  RecordedSpawner recordedSpawner{spawner, journal};
  RecordedCommands recordedCommands{commands, journal};
  RecordedApplication recordedApplication{application, journal};
  RecordedAlerts recordedAlerts{alerts, journal};
  RecordedStatusBar recordedBar{statusBar, journal};
  RecordedUrlEvents recordedUrlEvents{urlEvents, journal};
  RecordedWorkspace recordedWorkspace{workspace, journal};
  RecordedWindowSystem recordedWindows{windowSystem, journal};
  Executor executor{loop};

  std::function<void()> whileMakingWindow;  ///< where there is none
  std::shared_ptr<HelperDelegate> delegate;

  [[nodiscard]] Backends backends() {
    return {.executor = executor,
            .application = recordedApplication,
            .processSpawner = recordedSpawner,
            .commandRunner = recordedCommands,
            .fileSystem = recordedFiles,
            .outputFiles = recordedFiles,
            .host = host,
            .httpSession = http,
            .statusBar = recordedBar,
            .windowSystem = recordedWindows,
            .urlEvents = recordedUrlEvents,
            .alerts = recordedAlerts,
            .savePanels = savePanels,
            .pasteboard = pasteboard,
            .beeper = beeper,
            .workspace = recordedWorkspace};
  }

  void launch() { delegate->applicationDidFinishLaunching(); }

  [[nodiscard]] const SupervisorFields& fields() const { return delegate->fields(); }
  [[nodiscard]] FakeChild& child(std::size_t index = 0) const { return *spawner.children().at(index); }
  [[nodiscard]] std::size_t launches() const { return spawner.children().size(); }
  [[nodiscard]] ImportForm& form() const { return fields().downloaderWindow->form(); }
  [[nodiscard]] Window& window() const { return fields().downloaderWindow->window(); }
  /// What the delegate gave its window.
  [[nodiscard]] EnsureHelper ensureHelper() const {
    return fields().downloaderWindow ? fields().downloaderWindow->fields().ensureHelper : ensureHelper_;
  }

  /// The task's answer, once it has one.
  std::shared_ptr<const std::optional<bool>> answerOf(Task<bool> task) {
    auto answer = std::make_shared<std::optional<bool>>();
    lastTask = executor.spawn([](Task<bool> asked, std::shared_ptr<std::optional<bool>> out) -> Task<void> {
      *out = co_await asked;
    }(std::move(task), answer));
    return answer;
  }
  std::optional<TaskHandle> lastTask;

  std::shared_ptr<const std::optional<bool>> start(bool openPage = false) {
    return answerOf(delegate->startIfNeeded(openPage));
  }

  /// Launches the program and starts a child that answers healthy at its first probe.
  void launchWithRunningChild() {
    launch();
    startChild();
  }
  void startChild() {
    health.answerHealthyAfter(1);
    start();
    clock.advance(std::chrono::milliseconds(150));
  }

  /// The display as the user sees it in the bar's own item.
  [[nodiscard]] Display display() const {
    const auto item = statusBar.items().at(0).lock();
    const auto& toggle = *item->menu()->items().at(4);
    return {item->menu()->items().at(0)->title(), toggle.title(), toggle.isEnabled(), item->buttonTitle()};
  }
  void scribbleOnDisplay() const {
    fields().statusMenuItem->setTitle(scribbledDisplay.statusLine);
    fields().toggleMenuItem->setTitle(scribbledDisplay.toggleTitle);
    fields().toggleMenuItem->setEnabled(scribbledDisplay.toggleEnabled);
    fields().statusItem->setButtonTitle(scribbledDisplay.barTitle);
  }

  /// The user chooses the item at `position` of the status menu, counted from 1.
  void choose(std::size_t position) const {
    statusBar.items().at(0).lock()->menu()->items().at(position - 1)->userChose();
  }

 private:
  std::shared_ptr<HelperDelegate> delegateWithoutWindow() {
    return std::make_shared<HelperDelegate>(
        fixedAddresses(),
        HelperDelegate::Capabilities{executor, recordedApplication, recordedSpawner, recordedCommands,
                                     recordedFiles, recordedFiles, host, recordedBar, recordedUrlEvents,
                                     recordedAlerts, recordedWorkspace},
        [this](EnsureHelper function) {
          ensureHelper_ = std::move(function);
          if (whileMakingWindow) whileMakingWindow();
          return nullptr;
        });
  }

  EnsureHelper ensureHelper_;
};

}  // namespace zunto::testing
