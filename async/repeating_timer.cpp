#include "async/repeating_timer.h"

#include <utility>

namespace zunto {

RepeatingTimer::RepeatingTimer(Clock& clock, std::chrono::nanoseconds interval, std::function<void()> fire)
    : clock_(clock),
      interval_(interval),
      next_(clock.now() + interval),
      fire_(std::make_shared<std::function<void()>>(std::move(fire))) {
  schedule();
}

void RepeatingTimer::invalidate() { timer_.reset(); }

void RepeatingTimer::schedule() {
  timer_ = clock_.callLater(next_ - clock_.now(), [this] {
    next_ += interval_ * (1 + (clock_.now() - next_) / interval_);
    schedule();
    // The callback may destroy this object, and with it the member that holds the callback.
    const std::shared_ptr<std::function<void()>> fire = fire_;
    (*fire)();
  });
}

}  // namespace zunto
