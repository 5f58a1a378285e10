// The program's entry, the same on every platform: what stands before it builds the backends.
#pragma once

#include <functional>
#include <memory>
#include <string_view>

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

/// Makes `delegate` the application's, keeps it while the event loop runs, which is until the application
/// terminates, and answers the program's exit status: 0. Main thread.
[[nodiscard]] int runHelper(ApplicationLoop& application, std::shared_ptr<HelperDelegate> delegate);

/// What differs from platform to platform: builds the backends, runs the helper on them and answers the exit
/// status.
using PlatformMain = std::function<int(FixedAddresses)>;

/// The whole program: parses the fixed addresses before anything of the platform stands, and answers what
/// `platformMain` answers. An address that does not parse, and whatever `platformMain` throws, is a fatal
/// error. Main thread.
[[nodiscard]] int runProgram(const PlatformMain& platformMain);

/// With another web host than the build was configured with.
[[nodiscard]] int runProgram(const PlatformMain& platformMain, std::string_view webPageHost);

}  // namespace zunto
