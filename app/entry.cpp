#include "app/entry.h"

#include <exception>
#include <utility>

#include "async/fatal.h"

namespace zunto {

std::shared_ptr<HelperDelegate> makeHelperDelegate(FixedAddresses addresses, const Backends& backends) {
  const DownloaderWindowController::Capabilities forWindow{.executor = backends.executor,
                                                           .httpSession = backends.httpSession,
                                                           .fileSystem = backends.fileSystem,
                                                           .windowSystem = backends.windowSystem,
                                                           .application = backends.application,
                                                           .savePanels = backends.savePanels,
                                                           .pasteboard = backends.pasteboard,
                                                           .beeper = backends.beeper,
                                                           .workspace = backends.workspace};
  const HelperDelegate::Capabilities forDelegate{.executor = backends.executor,
                                                 .application = backends.application,
                                                 .processSpawner = backends.processSpawner,
                                                 .commandRunner = backends.commandRunner,
                                                 .fileSystem = backends.fileSystem,
                                                 .outputFiles = backends.outputFiles,
                                                 .host = backends.host,
                                                 .statusBar = backends.statusBar,
                                                 .urlEvents = backends.urlEvents,
                                                 .alerts = backends.alerts,
                                                 .workspace = backends.workspace};
  auto makeWindow = [forWindow, helperBaseUrl = addresses.helperBaseURL](EnsureHelper ensureHelper) {
    return DownloaderWindowController::create(std::move(ensureHelper), helperBaseUrl, forWindow);
  };
  return std::make_shared<HelperDelegate>(std::move(addresses), forDelegate, std::move(makeWindow));
}

// The one that keeps it is this function: NOLINTNEXTLINE(performance-unnecessary-value-param)
int runHelper(ApplicationLoop& application, std::shared_ptr<HelperDelegate> delegate) {
  application.setDelegate(delegate);
  application.setActivationPolicy(ActivationPolicy::regular);
  application.run();
  return 0;
}

namespace {

int runWith(FixedAddresses addresses, const PlatformMain& platformMain) {
  try {
    return platformMain(std::move(addresses));
  } catch (const std::exception& error) {
    fatalError(error.what());
  } catch (...) {
    fatalError("something was thrown that is no error");
  }
}

}  // namespace

int runProgram(const PlatformMain& platformMain) { return runWith(fixedAddresses(), platformMain); }

int runProgram(const PlatformMain& platformMain, std::string_view webPageHost) {
  return runWith(fixedAddresses(webPageHost), platformMain);
}

}  // namespace zunto
