// The application delegate: starts, watches and stops the local processor, shows its state in the status
// menu, and owns the import window.
//
// It trusts no bookkeeping of its own to say whether a processor is up: it asks the processor. Owner: the
// program's entry, which keeps the one instance for the life of the program; running tasks keep it alive too,
// and every function it hands out holds it weakly. Thread: main thread only; every entry point that the
// platform calls checks that.
#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/fixed_addresses.h"
#include "async/executor.h"
#include "async/main_thread.h"
#include "async/repeating_timer.h"
#include "import/downloader_window_controller.h"
#include "platform/application.h"
#include "platform/dialogs.h"
#include "platform/files.h"
#include "platform/host_environment.h"
#include "platform/model/menu.h"
#include "platform/model/status_item.h"
#include "platform/process.h"
#include "platform/status_bar.h"
#include "platform/url_events.h"
#include "platform/workspace.h"

namespace zunto {

/// What the delegate holds, gathered so that it can be looked at as a whole.
struct SupervisorFields {
  std::shared_ptr<ChildProcess> processor;   ///< the processor that this program launched
  std::shared_ptr<StatusItem> statusItem;    ///< set once, at launch
  std::shared_ptr<MenuItem> statusMenuItem;  ///< first line of the menu: the state
  std::shared_ptr<MenuItem> toggleMenuItem;  ///< starts or stops the processor
  std::shared_ptr<OutputFile> logHandle;     ///< open while a child runs
  std::optional<RepeatingTimer> healthTimer;
  std::shared_ptr<DownloaderWindowController> downloaderWindow;
  bool isStarting = false;  ///< a start sequence is under way
};

class HelperDelegate final : public ApplicationDelegate,
                             public std::enable_shared_from_this<HelperDelegate>,
                             private SupervisorFields {
 public:
  /// Makes the import window; called once, at launch.
  using WindowFactory = std::function<std::shared_ptr<DownloaderWindowController>(EnsureHelper)>;

  /// The capabilities that the supervisor uses, all of which must outlive it.
  struct Capabilities {
    Executor& executor;
    Application& application;
    ProcessSpawner& processSpawner;
    CommandRunner& commandRunner;
    FileSystem& fileSystem;
    OutputFileOpener& outputFiles;
    const HostEnvironment& host;
    StatusBar& statusBar;
    UrlEventSource& urlEvents;
    AlertPresenter& alerts;
    Workspace& workspace;
  };

  /// Builds nothing yet. To be held by a shared pointer.
  HelperDelegate(FixedAddresses addresses, const Capabilities& capabilities, WindowFactory makeWindow);

  // Lifecycle.

  /// Builds the menu, makes and presents the import window, listens for links, starts the health timer.
  void applicationDidFinishLaunching() override;

  /// Ends the health timer, listens no more, interrupts the child. Waits for nothing.
  void applicationWillTerminate() override;

  /// A link that another program handed over; what is no link of this program's scheme is ignored silently.
  void handleURLWithEvent(const UrlEvent& event);

  // Menu commands.
  void openVideoImport();
  void openDownloader();
  void toggleHelper();
  void showLog();
  void quit();

  // Launching and stopping the processor.

  /// Makes sure that a healthy processor answers, launching one when none does; answers whether one does.
  /// While a start sequence is under way it only probes. With `openPage`, opens the web page on success.
  /// Never fails.
  [[nodiscard]] Task<bool> startIfNeeded(bool openPage);

  /// Interrupts the held child, if any, has it terminated 2 seconds later if it still runs, and forgets it.
  void stopProcessor();

  // Health.

  /// Whether a processor, whoever's it is, answers healthy. Blocks for at most about a second; never fails.
  [[nodiscard]] Task<bool> probeHealth();

  /// One tick of the health timer: probes and shows the answer. Does nothing during a start sequence.
  [[nodiscard]] Task<void> refreshHealth();

  [[nodiscard]] const SupervisorFields& fields() const { return *this; }

 private:
  using Command = void (HelperDelegate::*)();

  // Lifecycle.
  void buildStatusMenu();
  [[nodiscard]] std::shared_ptr<MenuItem> menuItem(std::string title, Command command,
                                                   std::optional<char> keyEquivalent = std::nullopt);
  [[nodiscard]] EnsureHelper makeEnsureHelper();
  void startHealthTimer();
  void spawn(Task<void> body);

  // Launching and stopping the processor.
  struct Components;
  [[nodiscard]] Task<bool> runStartSequence(bool openPage);
  [[nodiscard]] Task<bool> launchAndWait();
  [[nodiscard]] Task<bool> waitUntilHealthy();
  [[nodiscard]] Task<bool> launchProcessor();
  [[nodiscard]] std::optional<std::string> firstMissingComponent(const Components& components) const;
  void launch(const Components& components);
  [[nodiscard]] ChildSpec describeChild(const Components& components) const;
  [[nodiscard]] std::function<void()> terminationHandler();
  [[nodiscard]] Task<void> showAlert(std::string title, std::string message);
  [[nodiscard]] bool ownChildRuns() const;

  // Status display.
  void updateStatus(bool healthy, bool owned);

  // Local log.
  [[nodiscard]] std::filesystem::path logFileURL();
  void revealLogFile();

  FixedAddresses addresses_;
  Capabilities capabilities_;
  WindowFactory makeWindow_;
  MainThread mainThread_;
};

}  // namespace zunto
