// A main loop without time of its own: turns run when a test says so, and time passes only by advance().
//
// Owner: the test, before everything that is handed a reference. Thread: main thread, except post().
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

#include "async/clock.h"

namespace zunto::testing {

class VirtualClock final : public Clock {
 public:
  [[nodiscard]] std::chrono::nanoseconds now() const override { return now_; }
  [[nodiscard]] std::unique_ptr<Timer> callLater(std::chrono::nanoseconds delay, Turn turn) override;
  void post(Turn turn) override;

  /// Runs the first queued turn; answers whether there was one.
  bool runOneTurn();

  /// Runs turns, and those that they post, until none is queued. No time passes.
  void runTurns();

  /// Lets `duration` pass: runs the queued turns, then every timer that falls due, each at its time and
  /// followed by the turns it posts.
  void advance(std::chrono::nanoseconds duration);

  /// Keeps the main loop busy for `duration`: time passes and nothing runs, so timers may come late.
  void block(std::chrono::nanoseconds duration) { now_ += duration; }

  /// When the first waiting timer falls, or fell, due; none when none waits.
  [[nodiscard]] std::optional<std::chrono::nanoseconds> nextDue() const;

  /// Calls one of the timers that are due by now, earliest first `choice` counted round them, and none of the
  /// queued turns; answers whether there was one.
  bool runOneTimer(std::size_t choice);

  /// How many timers are waiting.
  [[nodiscard]] std::size_t pendingTimers() const { return timers_->size(); }

 private:
  using Due = std::pair<std::chrono::nanoseconds, std::uint64_t>;
  using Timers = std::map<Due, Turn>;
  class PendingTimer;

  std::chrono::nanoseconds now_{0};
  std::uint64_t nextTimer_ = 0;
  std::shared_ptr<Timers> timers_ = std::make_shared<Timers>();
  std::mutex mutex_;  // post() may come from a backend's thread
  std::deque<Turn> turns_;
};

}  // namespace zunto::testing
