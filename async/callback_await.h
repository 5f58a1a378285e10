// Turns one call of a backend into one await. Backends know nothing of coroutines: they take a callback and
// give a handle whose destruction ends the operation.
//
//   const Reply reply = co_await awaitCallback<Reply>([&](Completion<Reply> done) { return api.start(done);
//   });
//
// The await ends in the turn in which the backend calls back. A cancellation ends it on a later turn with
// Cancelled, after the handle was dropped; a callback that is already posted by then wins. An await reached
// in a task that is already cancelled starts nothing and ends on a later turn with Cancelled. The forms
// ending in `Uncancellable` know no cancellation: they are for what only the user may end.
//
// Thread: main thread only.
#pragma once

#include <coroutine>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "async/error.h"
#include "async/task_context.h"

namespace zunto {

namespace detail {

/// The meeting place of one await and the callback that ends it. Shared by the awaiter and the callback; the
/// awaiter abandons it when its frame is destroyed.
template <class T>
class CallbackSlot final : public CancellableWait {
 public:
  explicit CallbackSlot(std::coroutine_handle<> frame) : frame_(frame) {}

  void complete(T value) {
    if (!frame_ || value_) return;
    value_.emplace(std::move(value));
    if (!isStarting_) resume();
  }

  void endCancelled() override { resume(); }

  void abandon() { frame_ = nullptr; }

  /// While the backend's start function runs its callback must not resume: the awaiter is in use. Answers
  /// whether the callback has come in that time.
  void beginStart() { isStarting_ = true; }
  bool endStart() {
    isStarting_ = false;
    return value_.has_value();
  }
  void resume() {
    if (frame_) std::exchange(frame_, nullptr).resume();
  }

  [[nodiscard]] std::optional<T>& value() { return value_; }

 private:
  std::coroutine_handle<> frame_;
  std::optional<T> value_;
  bool isStarting_ = false;
};

enum class Cancellability { cancellable, uncancellable };

}  // namespace detail

/// The callback of one await; copyable. Calling it more than once, or after the await has ended, does
/// nothing.
template <class T>
class Completion {
 public:
  explicit Completion(std::shared_ptr<detail::CallbackSlot<T>> slot) : slot_(std::move(slot)) {}
  void operator()(T value) const { slot_->complete(std::move(value)); }

 private:
  std::shared_ptr<detail::CallbackSlot<T>> slot_;
};

namespace detail {

struct NoHandle {};

template <class T, class Start>
class CallbackAwaiter {
  static_assert(std::is_trivially_destructible_v<Start>,
                "GCC 12 destroys a closure in an await twice: capture references to locals of the coroutine");

  using Handle = std::invoke_result_t<Start&, Completion<T>>;
  using StoredHandle = std::conditional_t<std::is_void_v<Handle>, NoHandle, Handle>;

 public:
  CallbackAwaiter(Start start, Cancellability cancellability)
      : start_(std::move(start)), cancellability_(cancellability) {}
  CallbackAwaiter(const CallbackAwaiter&) = delete;
  CallbackAwaiter& operator=(const CallbackAwaiter&) = delete;
  ~CallbackAwaiter() {
    if (slot_) slot_->abandon();
  }

  [[nodiscard]] bool await_ready() const noexcept { return false; }

  template <class Promise>
  void await_suspend(std::coroutine_handle<Promise> frame) {
    TaskContext& context = frame.promise().context();
    slot_ = std::make_shared<CallbackSlot<T>>(frame);
    if (cancellability_ == Cancellability::cancellable) {
      context.suspendedAt(slot_);
      if (context.isCancelled()) return;
    }
    start(context);
  }

  T await_resume() {
    handle_.reset();
    if (!slot_->value()) throw Cancelled();
    return std::move(*slot_->value());
  }

 private:
  void start(TaskContext& context) {
    slot_->beginStart();
    if constexpr (std::is_void_v<Handle>) {
      start_(Completion<T>(slot_));
    } else {
      handle_.emplace(start_(Completion<T>(slot_)));
    }
    if (slot_->endStart()) {
      context.clock().post([slot = slot_] { slot->resume(); });
    }
  }

  Start start_;
  Cancellability cancellability_;
  std::optional<StoredHandle> handle_;
  std::shared_ptr<CallbackSlot<T>> slot_;
};

}  // namespace detail

/// Awaits one callback. `start` is called with a Completion<T> when the await begins and answers the handle
/// that keeps the operation going, or nothing. It must be trivial to destroy, so it captures by reference.
template <class T, class Start>
[[nodiscard]] auto awaitCallback(Start start) {
  return detail::CallbackAwaiter<T, Start>(std::move(start), detail::Cancellability::cancellable);
}

/// The same for what no cancellation ends.
template <class T, class Start>
[[nodiscard]] auto awaitCallbackUncancellable(Start start) {
  return detail::CallbackAwaiter<T, Start>(std::move(start), detail::Cancellability::uncancellable);
}

}  // namespace zunto
