// Runs root tasks on the main loop.
//
// Owner: the program's entry (or the test), beside the Clock it was made with, which must outlive it.
// Destroying it ends every task where it is suspended: nothing resumes afterwards. Thread: main thread only.
#pragma once

#include <chrono>
#include <coroutine>
#include <memory>
#include <unordered_set>

#include "async/clock.h"
#include "async/task.h"

namespace zunto {

/// A spawned root task. Copyable; dropping it only lets go: the task runs on.
class TaskHandle {
 public:
  /// Marks the task as cancelled and wakes it on a later turn. Nothing happens when it has ended.
  void cancel() const;

  /// Whether the task has run to its end (or was ended with its executor).
  [[nodiscard]] bool isDone() const { return context_.expired(); }

 private:
  friend class Executor;
  explicit TaskHandle(std::weak_ptr<TaskContext> context) : context_(std::move(context)) {}
  std::weak_ptr<TaskContext> context_;
};

class Executor {
 public:
  explicit Executor(Clock& clock);
  Executor(const Executor&) = delete;
  Executor& operator=(const Executor&) = delete;
  ~Executor();

  [[nodiscard]] Clock& clock() const { return clock_; }

  /// Starts `task` on a later turn, never inside this call. The task must not fail: an exception that leaves
  /// it ends the program.
  TaskHandle spawn(Task<void> task);

  /// Ends after `duration`, or with Cancelled on a later turn once the task is cancelled.
  [[nodiscard]] Task<void> sleep(std::chrono::nanoseconds duration) const;

 private:
  class Root;
  struct Roots {
    std::unordered_set<void*> frames;
  };

  static Root runRoot(std::shared_ptr<TaskContext> context, std::shared_ptr<Roots> roots, Task<void> task);

  Clock& clock_;
  std::shared_ptr<Roots> roots_;
};

/// Answers, without suspending, whether the task that awaits it has been cancelled.
///   const bool cancelled = co_await isCancelled();
class CancellationQuery {
 public:
  CancellationQuery() noexcept = default;
  [[nodiscard]] bool await_ready() const noexcept { return false; }
  template <class Promise>
  bool await_suspend(std::coroutine_handle<Promise> frame) noexcept {
    cancelled_ = frame.promise().context().isCancelled();
    return false;
  }
  [[nodiscard]] bool await_resume() const noexcept { return cancelled_; }

 private:
  bool cancelled_ = false;
};

[[nodiscard]] inline CancellationQuery isCancelled() noexcept { return {}; }

}  // namespace zunto
