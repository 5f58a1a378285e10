#include "tests/fakes/virtual_clock.h"

#include <algorithm>

namespace zunto::testing {

class VirtualClock::PendingTimer final : public Timer {
 public:
  PendingTimer(std::weak_ptr<Timers> timers, Due due) : timers_(std::move(timers)), due_(due) {}
  PendingTimer(const PendingTimer&) = delete;
  PendingTimer& operator=(const PendingTimer&) = delete;
  ~PendingTimer() override {
    if (const std::shared_ptr<Timers> timers = timers_.lock()) timers->erase(due_);
  }

 private:
  std::weak_ptr<Timers> timers_;
  Due due_;
};

std::unique_ptr<Timer> VirtualClock::callLater(std::chrono::nanoseconds delay, Turn turn) {
  const Due due{now_ + std::max(delay, std::chrono::nanoseconds::zero()), nextTimer_++};
  timers_->emplace(due, std::move(turn));
  return std::make_unique<PendingTimer>(timers_, due);
}

void VirtualClock::post(Turn turn) {
  const std::lock_guard lock(mutex_);
  turns_.push_back(std::move(turn));
}

bool VirtualClock::runOneTurn() {
  Turn turn;
  {
    const std::lock_guard lock(mutex_);
    if (turns_.empty()) return false;
    turn = std::move(turns_.front());
    turns_.pop_front();
  }
  turn();
  return true;
}

void VirtualClock::runTurns() {
  while (runOneTurn()) {
  }
}

void VirtualClock::advance(std::chrono::nanoseconds duration) {
  const std::chrono::nanoseconds end = now_ + duration;
  runTurns();
  while (!timers_->empty() && timers_->begin()->first.first <= end) {
    const auto first = timers_->begin();
    now_ = std::max(now_, first->first.first);
    const Turn turn = std::move(first->second);
    timers_->erase(first);
    turn();
    runTurns();
  }
  now_ = end;
}

}  // namespace zunto::testing
