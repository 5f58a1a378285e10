// The main run loop as the logic's clock. Turns and timers run in the common modes, so they go on while a
// menu is open or a modal dialog stands.
//
// Owner: the program's entry; made on the main thread. Destroying it drops what is queued. Thread: main
// thread, except post().
#pragma once

#include <chrono>
#include <memory>

#include "async/clock.h"

namespace zunto {

class AppKitClock final : public Clock {
 public:
  AppKitClock();
  ~AppKitClock() override;

  [[nodiscard]] std::chrono::nanoseconds now() const override;
  [[nodiscard]] std::unique_ptr<Timer> callLater(std::chrono::nanoseconds delay, Turn turn) override;
  void post(Turn turn) override;

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace zunto
