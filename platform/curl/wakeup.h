// Lets one thread end another's poll: a pipe that is readable from a ring until it is cleared.
//
// libcurl's own wake-up is not used: some versions lose one that comes while they perform.
//
// Owner: the worker. Thread: ring() from any thread, the rest on the thread that polls.
#pragma once

#include <array>

namespace zunto {

class Wakeup {
 public:
  /// Throws SystemError when there are no descriptors left.
  Wakeup();
  Wakeup(const Wakeup&) = delete;
  Wakeup& operator=(const Wakeup&) = delete;
  ~Wakeup();

  /// What to poll for reading.
  [[nodiscard]] int descriptor() const { return ends_[0]; }

  void ring() const;
  void clear() const;

 private:
  std::array<int, 2> ends_{-1, -1};  // to read from, to write to
};

}  // namespace zunto
