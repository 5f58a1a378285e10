#include "tests/fakes/virtual_clock.h"

#include <algorithm>
#include <iterator>
#include <limits>

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

std::optional<std::chrono::nanoseconds> VirtualClock::nextDue() const {
  if (timers_->empty()) return std::nullopt;
  return timers_->begin()->first.first;
}

bool VirtualClock::runOneTimer(std::size_t choice) {
  const auto notDue = timers_->upper_bound({now_, std::numeric_limits<std::uint64_t>::max()});
  const auto due = static_cast<std::size_t>(std::distance(timers_->begin(), notDue));
  if (due == 0) return false;
  const auto chosen = std::next(timers_->begin(), static_cast<std::ptrdiff_t>(choice % due));
  const Turn turn = std::move(chosen->second);
  timers_->erase(chosen);
  turn();
  return true;
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
