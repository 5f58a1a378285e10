#include "app/entry.h"

#include <utility>

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

int runHelper(ApplicationLoop& application, const DelegateFactory& makeDelegate) {
  const std::shared_ptr<HelperDelegate> delegate = makeDelegate(fixedAddresses());
  application.setDelegate(delegate);
  application.setActivationPolicy(ActivationPolicy::regular);
  application.run();
  return 0;
}

}  // namespace zunto
