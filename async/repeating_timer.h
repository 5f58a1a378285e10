// A repeating call on the main loop at a fixed interval from its making; firings that the loop was too busy
// to make are skipped, not made up for.
//
// Owner: the object that made it; destroying it ends the firings. Thread: main thread only.
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "async/clock.h"

namespace zunto {

class RepeatingTimer {
 public:
  /// First firing one `interval` (more than zero) from now. `clock` must outlive this object. `fire` may call
  /// invalidate() and may destroy this object.
  RepeatingTimer(Clock& clock, std::chrono::nanoseconds interval, std::function<void()> fire);
  RepeatingTimer(const RepeatingTimer&) = delete;  // the pending call points to it
  RepeatingTimer& operator=(const RepeatingTimer&) = delete;
  ~RepeatingTimer() = default;

  /// Ends the firings; may be called more than once.
  void invalidate();

  [[nodiscard]] bool isValid() const { return timer_ != nullptr; }

 private:
  void schedule();

  Clock& clock_;
  std::chrono::nanoseconds interval_;
  std::chrono::nanoseconds next_;
  std::shared_ptr<std::function<void()>> fire_;
  std::unique_ptr<Timer> timer_;
};

}  // namespace zunto
