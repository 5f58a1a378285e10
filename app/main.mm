// The macOS program: builds the backends and hands them to the logic.
#import <Foundation/Foundation.h>

#include <memory>
#include <utility>

#include "app/entry.h"
#include "platform/appkit/app_kit_application.h"
#include "platform/appkit/app_kit_beeper.h"
#include "platform/appkit/app_kit_clock.h"
#include "platform/appkit/app_kit_dialogs.h"
#include "platform/appkit/app_kit_host_environment.h"
#include "platform/appkit/app_kit_pasteboard.h"
#include "platform/appkit/app_kit_status_bar.h"
#include "platform/appkit/app_kit_url_events.h"
#include "platform/appkit/app_kit_window_system.h"
#include "platform/appkit/app_kit_workspace.h"
#include "platform/beast/beast_http_session.h"
#include "platform/posix/ending_signals.h"
#include "platform/posix/posix_command_runner.h"
#include "platform/posix/posix_file_system.h"
#include "platform/posix/posix_process_spawner.h"
#include "platform/posix/proxy_exemption.h"

namespace {

using namespace zunto;

/// Everything that lives as long as the program. What stands below may use what stands above.
struct Program {
  AppKitClock clock;
  AppKitApplication application{clock};
  AppKitUrlEvents urlEvents{clock};
  AppKitHostEnvironment host;
  PosixProcessSpawner processSpawner{clock};
  PosixCommandRunner commandRunner;
  PosixFileSystem fileSystem;
  PosixOutputFileOpener outputFiles;
  BeastHttpSession httpSession{clock};
  AppKitStatusBar statusBar;
  AppKitWindowSystem windowSystem;
  AppKitAlertPresenter alerts{clock};
  AppKitSavePanelPresenter savePanels{clock};
  AppKitPasteboard pasteboard;
  AppKitBeeper beeper;
  AppKitWorkspace workspace;
  // Last, so first to go: suspended tasks hold requests, timers and the delegate.
  Executor executor{clock};

  std::shared_ptr<HelperDelegate> makeDelegate(FixedAddresses addresses) {
    return makeHelperDelegate(std::move(addresses), {.executor = executor,
                                                     .application = application,
                                                     .processSpawner = processSpawner,
                                                     .commandRunner = commandRunner,
                                                     .fileSystem = fileSystem,
                                                     .outputFiles = outputFiles,
                                                     .host = host,
                                                     .httpSession = httpSession,
                                                     .statusBar = statusBar,
                                                     .windowSystem = windowSystem,
                                                     .urlEvents = urlEvents,
                                                     .alerts = alerts,
                                                     .savePanels = savePanels,
                                                     .pasteboard = pasteboard,
                                                     .beeper = beeper,
                                                     .workspace = workspace});
  }
};

int runOnAppKit(FixedAddresses addresses) {
  exemptFromProxies("127.0.0.1");
  auto program = std::make_unique<Program>();
  AppKitApplication& application = program->application;
  // The system ends the process inside the run loop, so nothing that stands here would be put away.
  application.setDidTerminate([&program] { program.reset(); });
  return runHelper(application, program->makeDelegate(std::move(addresses)));
}

}  // namespace

int main() {
  unblockEndingSignals();
  @autoreleasepool {
    return runProgram(runOnAppKit);
  }
}
