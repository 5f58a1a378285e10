// Task<T>: a lazy coroutine of the main thread. It starts when it is awaited (or spawned by an Executor),
// ends with a value or an exception for its awaiter, and inherits the cancellation state of the root task.
//
// Owner: whoever holds the Task; destroying a Task that is suspended destroys its frame and everything it
// awaits, and nothing of it runs again. Thread: main thread only.
//
// Three habits that coroutines of this tree keep:
//   - A lambda coroutine does not capture: the closure dies before the frame. It takes arguments, which the
//   frame
//     keeps.
//   - No co_await stands in a condition: GCC 12 puts the condition's value in front of the frame and then
//   resumes
//     at the wrong address. The answer gets a name first.
//   - A call that takes more than plain values is awaited through a named Task, so that no temporary has to
//     outlive a suspension, which GCC 12 does not always get right either.
#pragma once

#include <coroutine>
#include <exception>
#include <memory>
#include <optional>
#include <utility>

#include "async/task_context.h"

namespace zunto {

template <class T>
class Task;

namespace detail {

class TaskPromiseBase {
 public:
  struct FinalAwaiter {
    [[nodiscard]] bool await_ready() const noexcept { return false; }
    template <class Promise>
    [[nodiscard]] std::coroutine_handle<> await_suspend(
        std::coroutine_handle<Promise> finished) const noexcept {
      return finished.promise().continuation_;
    }
    void await_resume() const noexcept {}
  };

  [[nodiscard]] std::suspend_always initial_suspend() const noexcept { return {}; }
  [[nodiscard]] FinalAwaiter final_suspend() const noexcept { return {}; }
  void unhandled_exception() noexcept { failure_ = std::current_exception(); }

  [[nodiscard]] TaskContext& context() const { return *context_; }

  void continueWith(std::coroutine_handle<> continuation, TaskContext& context) {
    continuation_ = continuation;
    context_ = &context;
  }

 protected:
  void rethrowFailure() const {
    if (failure_) std::rethrow_exception(failure_);
  }

 private:
  std::coroutine_handle<> continuation_;
  TaskContext* context_ = nullptr;
  std::exception_ptr failure_;
};

template <class T>
class TaskPromise : public TaskPromiseBase {
 public:
  Task<T> get_return_object();
  template <class U>
  void return_value(U&& value) {
    value_.emplace(std::forward<U>(value));
  }
  T takeResult() {
    rethrowFailure();
    return std::move(*value_);
  }

 private:
  std::optional<T> value_;
};

template <>
class TaskPromise<void> : public TaskPromiseBase {
 public:
  Task<void> get_return_object();
  void return_void() const noexcept {}
  void takeResult() const { rethrowFailure(); }
};

}  // namespace detail

template <class T = void>
class [[nodiscard]] Task {
 public:
  using promise_type = detail::TaskPromise<T>;

  Task(Task&& other) noexcept : frame_(std::exchange(other.frame_, nullptr)) {}
  Task& operator=(Task&& other) noexcept {
    if (this != &other) {
      destroy();
      frame_ = std::exchange(other.frame_, nullptr);
    }
    return *this;
  }
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;
  ~Task() { destroy(); }

  /// Starts the coroutine inside the awaiter's turn; the await ends in the turn in which it ends.
  class Awaiter {
   public:
    explicit Awaiter(std::coroutine_handle<promise_type> frame) noexcept : frame_(frame) {}
    [[nodiscard]] bool await_ready() const noexcept { return false; }
    template <class Promise>
    [[nodiscard]] std::coroutine_handle<> await_suspend(
        std::coroutine_handle<Promise> awaiting) const noexcept {
      frame_.promise().continueWith(awaiting, awaiting.promise().context());
      return frame_;
    }
    [[nodiscard]] T await_resume() const { return frame_.promise().takeResult(); }

   private:
    std::coroutine_handle<promise_type> frame_;
  };

  Awaiter operator co_await() const noexcept { return Awaiter(frame_); }

 private:
  friend promise_type;
  explicit Task(std::coroutine_handle<promise_type> frame) noexcept : frame_(frame) {}

  void destroy() {
    if (frame_) frame_.destroy();
  }

  std::coroutine_handle<promise_type> frame_;
};

namespace detail {

template <class T>
Task<T> TaskPromise<T>::get_return_object() {
  return Task<T>(std::coroutine_handle<TaskPromise<T>>::from_promise(*this));
}

inline Task<void> TaskPromise<void>::get_return_object() {
  return Task<void>(std::coroutine_handle<TaskPromise<void>>::from_promise(*this));
}

}  // namespace detail

/// `task` with `owner` held until it has ended or been destroyed: a lazy member coroutine keeps only `this`.
template <class Owner>
Task<void> keepingAlive(std::shared_ptr<Owner> owner, Task<void> task) {
  // Compilers differ on which parameter of a destroyed coroutine goes first; of its locals the last does.
  const std::shared_ptr<Owner> kept = std::move(owner);
  const Task<void> body = std::move(task);
  co_await body;  // NOLINT(bugprone-use-after-move): the linter sees the parameters of the frame moved
}

}  // namespace zunto
