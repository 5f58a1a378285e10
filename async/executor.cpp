#include "async/executor.h"

#include <exception>
#include <string>
#include <utility>

#include "async/callback_await.h"
#include "async/fatal.h"

namespace zunto {

void TaskHandle::cancel() const {
  if (const std::shared_ptr<TaskContext> context = context_.lock()) context->cancel();
}

/// The outermost frame of a spawned task. It frees itself at its end; until then the executor's list of
/// frames is what ends it at teardown.
class Executor::Root {
 public:
  class promise_type {
   public:
    promise_type(std::shared_ptr<TaskContext>& context, std::shared_ptr<Roots>& roots, Task<void>&)
        : context_(context), roots_(roots) {
      roots_->frames.insert(frame().address());
    }
    promise_type(const promise_type&) = delete;
    promise_type& operator=(const promise_type&) = delete;
    ~promise_type() { roots_->frames.erase(frame().address()); }

    Root get_return_object() { return Root(frame()); }
    [[nodiscard]] std::suspend_always initial_suspend() const noexcept { return {}; }
    [[nodiscard]] std::suspend_never final_suspend() const noexcept { return {}; }
    void return_void() const noexcept {}
    void unhandled_exception() const noexcept {
      try {
        throw;
      } catch (const std::exception& failure) {
        fatalError(std::string("a task failed: ") + failure.what());
      } catch (...) {
        fatalError("a task failed with an unknown exception");
      }
    }
    [[nodiscard]] TaskContext& context() const { return *context_; }

   private:
    std::coroutine_handle<promise_type> frame() {
      return std::coroutine_handle<promise_type>::from_promise(*this);
    }

    std::shared_ptr<TaskContext> context_;
    std::shared_ptr<Roots> roots_;
  };

  [[nodiscard]] std::coroutine_handle<> frame() const { return frame_; }

 private:
  explicit Root(std::coroutine_handle<> frame) : frame_(frame) {}
  std::coroutine_handle<> frame_;
};

Executor::Executor(Clock& clock) : clock_(clock), roots_(std::make_shared<Roots>()) {}

Executor::~Executor() {
  while (!roots_->frames.empty()) {
    std::coroutine_handle<>::from_address(*roots_->frames.begin()).destroy();
  }
}

// The first two arguments are the promise's: its constructor takes them.
Executor::Root Executor::runRoot(std::shared_ptr<TaskContext>, std::shared_ptr<Roots>, Task<void> task) {
  co_await task;
}

TaskHandle Executor::spawn(Task<void> task) {
  auto context = std::make_shared<TaskContext>(clock_);
  TaskHandle handle{std::weak_ptr<TaskContext>(context)};
  const std::coroutine_handle<> frame = runRoot(std::move(context), roots_, std::move(task)).frame();
  clock_.post([roots = std::weak_ptr<Roots>(roots_), frame] {
    const std::shared_ptr<Roots> alive = roots.lock();
    if (alive && alive->frames.contains(frame.address())) frame.resume();
  });
  return handle;
}

Task<void> Executor::sleep(std::chrono::nanoseconds duration) const {
  struct Elapsed {};
  co_await awaitCallback<Elapsed>([this, duration](const Completion<Elapsed>& done) {
    return clock_.callLater(duration, [done] { done(Elapsed{}); });
  });
}

}  // namespace zunto
