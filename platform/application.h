// The application object of the platform, in the two halves that its two users need.
//
// Owner: the program's entry. Thread: main thread only.
#pragma once

#include <memory>

#include "async/interface.h"

namespace zunto {

/// What the platform tells the program's delegate.
class ApplicationDelegate : public Interface {
 public:
  /// Called once, when the event loop runs.
  virtual void applicationDidFinishLaunching() = 0;

  /// Called once, before the application ends in the ordinary way (quit command, end of the desktop session,
  /// SIGTERM, SIGINT, SIGHUP).
  virtual void applicationWillTerminate() = 0;
};

/// What the logic asks of the application.
class Application : public Interface {
 public:
  /// Brings the program's windows in front of those of other applications.
  virtual void activateIgnoringOtherApps() = 0;

  /// Ends the application in the ordinary way: applicationWillTerminate() is called, then the event loop
  /// ends.
  virtual void terminate() = 0;
};

enum class ActivationPolicy { regular };

/// What the program's entry does with the application.
class ApplicationLoop : public Interface {
 public:
  /// The delegate is held weakly: the entry keeps it.
  virtual void setDelegate(std::weak_ptr<ApplicationDelegate> delegate) = 0;

  virtual void setActivationPolicy(ActivationPolicy policy) = 0;

  /// Runs the event loop until the application terminates.
  virtual void run() = 0;
};

}  // namespace zunto
