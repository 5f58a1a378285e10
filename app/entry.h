// The program's entry, the same on every platform: what stands before it builds the backends.
#pragma once

#include <functional>
#include <memory>

#include "app/helper_delegate.h"
#include "async/executor.h"
#include "platform/application.h"
#include "platform/beeper.h"
#include "platform/dialogs.h"
#include "platform/files.h"
#include "platform/host_environment.h"
#include "platform/http.h"
#include "platform/pasteboard.h"
#include "platform/process.h"
#include "platform/status_bar.h"
#include "platform/url_events.h"
#include "platform/window_system.h"
#include "platform/workspace.h"

namespace zunto {

/// One of every capability. Only the entry has them all: it hands each class what that class uses.
struct Backends {
  Executor& executor;
  Application& application;
  ProcessSpawner& processSpawner;
  CommandRunner& commandRunner;
  FileSystem& fileSystem;
  OutputFileOpener& outputFiles;
  const HostEnvironment& host;
  HttpSession& httpSession;
  StatusBar& statusBar;
  WindowSystem& windowSystem;
  UrlEventSource& urlEvents;
  AlertPresenter& alerts;
  SavePanelPresenter& savePanels;
  Pasteboard& pasteboard;
  Beeper& beeper;
  Workspace& workspace;
};

/// The delegate and, when it launches, its import window on `backends`, all of which must outlive both.
[[nodiscard]] std::shared_ptr<HelperDelegate> makeHelperDelegate(FixedAddresses addresses,
                                                                 const Backends& backends);

using DelegateFactory = std::function<std::shared_ptr<HelperDelegate>(FixedAddresses)>;

/// Parses the fixed addresses, makes the one delegate, runs the event loop until the application terminates,
/// and answers the program's exit status: 0. Main thread.
[[nodiscard]] int runHelper(ApplicationLoop& application, const DelegateFactory& makeDelegate);

}  // namespace zunto
