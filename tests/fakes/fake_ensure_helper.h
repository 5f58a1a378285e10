// The application's promise that a processor runs, as a test scripts it.
//
// Owner: the test, after its clock, which must outlive it. Thread: main thread only.
#pragma once

#include <chrono>
#include <functional>

#include "async/callback_await.h"
#include "async/clock.h"
#include "async/error.h"
#include "async/task.h"

namespace zunto::testing {

class FakeEnsureHelper final {
 public:
  bool answer = true;                 ///< what the next calls will have answered by their end
  std::chrono::nanoseconds delay{0};  ///< from a call to its answer

  explicit FakeEnsureHelper(Clock& clock) : clock_(clock) {}

  /// What the window is given; it must not be called once this object is gone.
  [[nodiscard]] std::function<Task<bool>()> function() {
    return [this] { return run(*this); };
  }

  /// How often it was called.
  [[nodiscard]] int calls() const { return calls_; }

 private:
  struct Elapsed {};

  // As the real one, it goes on to its answer when the task that awaits it is cancelled.
  static Task<bool> run(FakeEnsureHelper& self) {
    ++self.calls_;
    if (self.delay > std::chrono::nanoseconds::zero()) {
      try {
        co_await awaitCallback<Elapsed>([&self](Completion<Elapsed> done) {
          return self.clock_.callLater(self.delay, [done] { done(Elapsed{}); });
        });
      } catch (const Cancelled&) {
        co_return self.answer;
      }
    }
    co_return self.answer;
  }

  Clock& clock_;
  int calls_ = 0;
};

}  // namespace zunto::testing
