// What every coroutine of one root task shares: its cancellation state and the one await at which it is
// suspended. It lives in the root and is inherited by everything the root awaits, so no flow can forget it.
//
// Owner: the root task; handles and turns hold it weakly or share it. Thread: main thread only.
#pragma once

#include <functional>
#include <memory>

#include "async/clock.h"
#include "async/interface.h"

namespace zunto {

/// A suspended await that a cancellation can wake.
class CancellableWait : public Interface {
 public:
  /// Ends the wait with Cancelled unless it has ended meanwhile. Called on a turn of its own.
  virtual void endCancelled() = 0;
};

class TaskContext {
 public:
  explicit TaskContext(Clock& clock) : clock_(clock) {}

  [[nodiscard]] Clock& clock() const { return clock_; }
  [[nodiscard]] bool isCancelled() const { return cancelled_; }

  /// Marks the task and wakes its suspended await on a later turn; never resumes anything inside this call.
  void cancel() {
    if (cancelled_) return;
    cancelled_ = true;
    wakeSoon();
  }

  /// Registers the await at which the task is now suspended. In a task that is already cancelled it is woken
  /// on a later turn at once.
  void suspendedAt(std::weak_ptr<CancellableWait> wait) {
    wait_ = std::move(wait);
    if (cancelled_) wakeSoon();
  }

 private:
  void wakeSoon() {
    if (wait_.expired()) return;
    clock_.post([wait = wait_] {
      if (const std::shared_ptr<CancellableWait> suspended = wait.lock()) suspended->endCancelled();
    });
  }

  Clock& clock_;
  bool cancelled_ = false;
  std::weak_ptr<CancellableWait> wait_;
};

}  // namespace zunto
