// The application on Qt: event loop, launch and end.
//
// Owner: the program's entry, as its first object: everything else of this folder needs it. Thread: the main
// thread, which is the one that makes it.
#pragma once

#include <memory>

#include "platform/application.h"

namespace zunto {

class QtApplication final : public Application, public ApplicationLoop {
 public:
  /// Connects to the display (and ends the program with Qt's message where there is none) and names the
  /// program. `argc` and `argv` are those of main(); they stay in use, and Qt takes its own options out of
  /// them.
  QtApplication(int argc, char** argv);
  /// Puts the signals' earlier dispositions back.
  ~QtApplication() override;

  void activateIgnoringOtherApps() override;
  void terminate() override;

  /// Whether this process's application has terminated, if there is one: Qt's event loop still hands out what
  /// it has in hand then, but nothing of the program may run any more.
  [[nodiscard]] static bool hasTerminated();

  void setDelegate(std::weak_ptr<ApplicationDelegate> delegate) override;
  void setActivationPolicy(ActivationPolicy policy) override;

  /// Calls applicationDidFinishLaunching() on the first turn. From here to the end SIGTERM, SIGINT and SIGHUP
  /// terminate the application, but for one that is ignored, which stays so; before, nothing stands yet that
  /// would have to be told. Returns at once when the application was terminated before.
  void run() override;

 private:
  class Native;
  class SignalTurns;
  class CompositorWatch;

  void finishLaunching();
  void endDelegate();

  int argc_;
  char** argv_;
  std::weak_ptr<ApplicationDelegate> delegate_;
  bool terminated_ = false;
  std::unique_ptr<Native> native_;
  std::unique_ptr<SignalTurns> signals_;
  std::unique_ptr<CompositorWatch> compositor_;
};

}  // namespace zunto
