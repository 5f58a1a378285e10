// Child processes of a POSIX system.
//
// Every child has a waiting thread of its own, which blocks until the kernel reports the child's end, reaps
// the child by its own identifier and posts the end notice to the main loop. No signal handler is installed,
// and no other child of this program is ever touched. A signal is sent under the lock that also guards the
// reaping, so it never reaches a process that was given the identifier of a child that is gone.
//
// Owner: the program's entry, after the Clock, which must outlive it. Destroying it forgets every `ended`
// that was not called yet; children run on and are still reaped. It never waits for a child: the threads are
// detached, hold only what is theirs, and end with their child or with the program. Thread: main thread only.
#pragma once

#include <functional>
#include <memory>

#include "async/clock.h"
#include "platform/process.h"

namespace zunto {

class PosixProcessSpawner final : public ProcessSpawner {
 public:
  explicit PosixProcessSpawner(Clock& clock);
  ~PosixProcessSpawner() override;

  [[nodiscard]] std::shared_ptr<ChildProcess> launch(const ChildSpec& spec,
                                                     std::function<void()> ended) override;

 private:
  class Notices;
  class MainLoop;

  std::shared_ptr<Notices> notices_;
  std::shared_ptr<MainLoop> mainLoop_;
};

}  // namespace zunto
