// The main loop's time, timers and turns on Qt's event loop. Once the QtApplication has terminated no turn
// and no timer runs any more: a start sequence must not launch a child that nobody would stop.
//
// Owner: the program's entry, after the QtApplication and before everything that is handed a reference.
// Thread: made and used on the main thread; post() from any thread.
#pragma once

#include <chrono>
#include <memory>

#include "async/clock.h"

namespace zunto {

class QtClock final : public Clock {
 public:
  QtClock();
  /// Turns that are still queued are dropped unrun.
  ~QtClock() override;

  [[nodiscard]] std::chrono::nanoseconds now() const override;
  [[nodiscard]] std::unique_ptr<Timer> callLater(std::chrono::nanoseconds delay, Turn turn) override;
  void post(Turn turn) override;

 private:
  class TurnQueue;
  class PendingTimer;

  std::unique_ptr<TurnQueue> turns_;
};

}  // namespace zunto
