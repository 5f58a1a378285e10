// The check that every entry point makes which the platform calls: the logic has no locks, so a call from
// another thread must stop the program before it can corrupt anything.
//
// Owner: whoever owns the logic; made on the main thread, which it remembers.
#pragma once

#include <string_view>
#include <thread>

namespace zunto {

class MainThread {
 public:
  /// Remembers the calling thread as the main thread.
  MainThread() noexcept : id_(std::this_thread::get_id()) {}

  /// Ends the program with `entryPoint` in the message when called on another thread.
  void check(std::string_view entryPoint) const noexcept;

 private:
  std::thread::id id_;
};

}  // namespace zunto
