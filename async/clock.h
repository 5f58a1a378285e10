// The main loop as the logic sees it: time, timers and turns, in one interface so that none can be faked
// without the others.
//
// Owner: the program's entry (or the test); outlives everything that is handed a reference.
// Thread: main thread, except post().
#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include "async/interface.h"

namespace zunto {

/// A pending call of Clock::callLater. Destroying it ends the timer: nothing is called back afterwards. It
/// may be destroyed inside its own call, which then runs to its end.
class Timer : public Interface {};

class Clock : public Interface {
 public:
  using Turn = std::function<void()>;

  /// Monotonic time since an arbitrary start.
  [[nodiscard]] virtual std::chrono::nanoseconds now() const = 0;

  /// Calls `turn` once on the main loop, no earlier than `delay` from now and never inside this call. A delay
  /// of zero or less means the next possible turn.
  [[nodiscard]] virtual std::unique_ptr<Timer> callLater(std::chrono::nanoseconds delay, Turn turn) = 0;

  /// Runs `turn` on a later turn of the main loop, never inside this call. Turns run first in, first out.
  /// From any thread. What is still queued when the clock is destroyed is dropped unrun.
  virtual void post(Turn turn) = 0;
};

}  // namespace zunto
