// The Linux desktop program: builds the backends and hands them to the logic.
#include <algorithm>
#include <array>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "app/entry.h"
#include "platform/beast/beast_http_session.h"
#include "platform/posix/ending_signals.h"
#include "platform/posix/posix_command_runner.h"
#include "platform/posix/posix_file_system.h"
#include "platform/posix/posix_host_environment.h"
#include "platform/posix/posix_process_spawner.h"
#include "platform/posix/proxy_exemption.h"
#include "platform/qt/qt_application.h"
#include "platform/qt/qt_clock.h"
#include "platform/qt/qt_color_scheme.h"
#include "platform/qt/qt_desktop.h"
#include "platform/qt/qt_dialogs.h"
#include "platform/qt/qt_session_bus.h"
#include "platform/qt/qt_single_instance.h"
#include "platform/qt/qt_status_bar.h"
#include "platform/qt/qt_url_events.h"
#include "platform/qt/qt_window_system.h"
#include "version.h"

namespace {

using namespace zunto;

constexpr std::string_view help =
    "Usage: zunto-helper [LINK | OPTION]\n"
    "\n"
    "Opens the Media Import window. Where the helper runs already, its window comes to the front instead.\n"
    "\n"
    "  LINK                 zunto-helper:?url=ADDRESS: puts ADDRESS, percent-encoded, into the window\n"
    "  --open-video-import  opens the tool's web page\n"
    "  --show-log           shows the processor's log in the file manager\n"
    "  --help               shows this and ends\n"
    "  --version            shows the version and ends\n";

/// What of the status menu the desktop entry offers, too; it has the same names for them.
constexpr std::array<std::pair<std::string_view, void (HelperDelegate::*)()>, 2> entryActions{
    {{"open-video-import", &HelperDelegate::openVideoImport}, {"show-log", &HelperDelegate::showLog}}};

DesktopActions actionsOn(const std::weak_ptr<HelperDelegate>& delegate) {
  DesktopActions actions;
  for (const auto& [name, method] : entryActions) {
    actions.emplace(name, [delegate, command = method] {
      if (const auto running = delegate.lock()) ((*running).*command)();
    });
  }
  return actions;
}

/// What the user only wants to read. It needs neither a display nor a bus, so that any shell can show it.
std::optional<std::string> textAskedFor(int argc, char** argv) {
  const std::vector<std::string_view> arguments(argv, argv + argc);
  const auto isGiven = [&](std::string_view option) {
    return std::ranges::find(arguments, option) != arguments.end();
  };
  if (isGiven("--help")) return std::string(help);
  if (isGiven("--version")) return "ZUNTO Helper " + std::string(programVersion) + "\n";
  return std::nullopt;
}

int runOnQt(int argc, char** argv, FixedAddresses addresses) {
  if (const std::optional<std::string> text = textAskedFor(argc, argv)) {
    std::cout << *text << std::flush;
    return std::cout ? 0 : 1;
  }
  exemptFromProxies("127.0.0.1");
  QtSingleInstance instance;
  std::array<std::string_view, entryActions.size()> actionNames;
  std::ranges::transform(entryActions, actionNames.begin(), [](const auto& action) { return action.first; });
  const LaunchRequest request = readLaunchRequest(argc, argv, actionNames);
  if (instance.claim(request) == QtSingleInstance::Role::handedOver) return 0;

  QtSessionBus sessionBus(instance.hasBus());
  QtApplication application(argc, argv);
  const std::optional<QDBusConnection> bus = sessionBus.connect();
  const QtColorScheme colorScheme(bus);
  QtClock clock;
  QtUrlEvents urlEvents(clock);
  const PosixHostEnvironment host(findExecutableFolder());
  PosixProcessSpawner processSpawner(clock);
  PosixCommandRunner commandRunner;
  PosixFileSystem fileSystem;
  PosixOutputFileOpener outputFiles;
  BeastHttpSession httpSession(clock);
  QtStatusBar statusBar(bus);
  QtWindowSystem windowSystem(statusBar.statusMenu(), bus);
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
  std::shared_ptr<HelperDelegate> delegate = makeHelperDelegate(std::move(addresses), backends);
  // The window comes up by itself at a start; only a link has to follow it.
  if (request.link) urlEvents.deliver(*request.link);
  const DesktopActions actions = actionsOn(delegate);
  if (request.action) clock.post([&clock, action = actions.at(*request.action)] { clock.post(action); });
  instance.serve(
      clock, urlEvents,
      [weak = std::weak_ptr(delegate)] {
        if (const auto running = weak.lock()) running->openDownloader();
      },
      actions);
  return runHelper(application, std::move(delegate));
}

}  // namespace

int main(int argc, char** argv) {
  unblockEndingSignals();
  return runProgram(
      [argc, argv](FixedAddresses addresses) { return runOnQt(argc, argv, std::move(addresses)); });
}
