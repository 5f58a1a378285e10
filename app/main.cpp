// The Linux desktop program: builds the backends and hands them to the logic.
#include <memory>
#include <optional>
#include <utility>

#include "app/entry.h"
#include "platform/curl/curl_http_session.h"
#include "platform/posix/posix_command_runner.h"
#include "platform/posix/posix_file_system.h"
#include "platform/posix/posix_host_environment.h"
#include "platform/posix/posix_process_spawner.h"
#include "platform/qt/qt_application.h"
#include "platform/qt/qt_clock.h"
#include "platform/qt/qt_desktop.h"
#include "platform/qt/qt_dialogs.h"
#include "platform/qt/qt_session_bus.h"
#include "platform/qt/qt_single_instance.h"
#include "platform/qt/qt_status_bar.h"
#include "platform/qt/qt_url_events.h"
#include "platform/qt/qt_window_system.h"

int main(int argc, char** argv) {
  using namespace zunto;

  QtApplication application(argc, argv);
  QtClock clock;
  const std::optional<QDBusConnection> bus = connectToSessionBus();
  QtUrlEvents urlEvents(clock);
  QtSingleInstance instance(clock, urlEvents, bus);
  const LaunchRequest request{.link = application.linkArgument(),
                              .activationToken = application.activationToken()};
  if (instance.claim(request) == QtSingleInstance::Role::handedOver) return 0;

  const PosixHostEnvironment host(findExecutableFolder());
  PosixProcessSpawner processSpawner(clock);
  PosixCommandRunner commandRunner;
  PosixFileSystem fileSystem;
  PosixOutputFileOpener outputFiles;
  CurlHttpSession httpSession(clock);
  QtStatusBar statusBar(bus);
  QtWindowSystem windowSystem(statusBar.statusMenu());
  QtDialogs dialogs(clock);
  QtPasteboard pasteboard;
  QtBeeper beeper;
  QtWorkspace workspace(bus);
  // Last, so first to go: suspended tasks hold requests, timers and the delegate.
  Executor executor(clock);

  const Backends backends{.executor = executor,
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
                          .alerts = dialogs,
                          .savePanels = dialogs,
                          .pasteboard = pasteboard,
                          .beeper = beeper,
                          .workspace = workspace};
  return runHelper(application, [&](FixedAddresses addresses) {
    auto delegate = makeHelperDelegate(std::move(addresses), backends);
    instance.setActivateHandler([weak = std::weak_ptr(delegate)] {
      if (const auto running = weak.lock()) running->openDownloader();
    });
    return delegate;
  });
}
