// The shared application object with its delegate.
//
// Owner: the program's entry, one at a time; made on the main thread. Destroying it takes the delegate away.
// Thread: main thread only.
#pragma once

#include <functional>
#include <memory>

#include "async/clock.h"
#include "platform/application.h"

namespace zunto {

class AppKitApplication final : public Application, public ApplicationLoop {
 public:
  explicit AppKitApplication(Clock& clock);
  ~AppKitApplication() override;

  void activateIgnoringOtherApps() override;

  /// Terminates on a turn of its own, so that no flow is in the middle of a step.
  void terminate() override;

  void setDelegate(std::weak_ptr<ApplicationDelegate> delegate) override;
  void setActivationPolicy(ActivationPolicy policy) override;

  /// The system ends the process inside this call: it does not return after a termination.
  void run() override;

  /// `didTerminate` is called once, after the delegate's applicationWillTerminate() and just before the
  /// system ends the process. What the entry has to put away, it puts away there; it may destroy everything,
  /// this object included.
  void setDidTerminate(std::function<void()> didTerminate);

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace zunto
