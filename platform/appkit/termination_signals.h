// SIGTERM, SIGINT and SIGHUP as calls on the main run loop.
//
// Owner: the application, one at a time; made on the main thread. Destroying it puts the earlier dispositions
// back. Thread: main thread only.
#pragma once

#include <functional>
#include <memory>

namespace zunto {

class TerminationSignals {
 public:
  /// Calls `received` on a turn of the main run loop, once for every burst of signals. Where the system gives
  /// no pipe, the signals keep what they did before.
  explicit TerminationSignals(std::function<void()> received);
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;
  ~TerminationSignals();

 private:
  class Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace zunto
