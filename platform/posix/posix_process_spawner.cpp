#include "platform/posix/posix_process_spawner.h"

#include <sys/wait.h>

#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/posix/spawn.h"
#include "platform/posix/system_failure.h"
#include "platform/posix/uninterrupted.h"

namespace zunto {
namespace {

/// One child from its launch until nobody asks about it any more. Shared by what the program holds, the
/// waiting thread and the delayed terminations. Any thread.
class Child {
 public:
  explicit Child(pid_t pid) : pid_(pid) {}

  [[nodiscard]] bool isRunning() const {
    const std::lock_guard lock(mutex_);
    return !isReaped_ && runsByTheKernelsWord();
  }

  void signal(int number) const {
    const std::lock_guard lock(mutex_);
    if (!isReaped_) ::kill(pid_, number);
  }

  /// Blocks until the child has ended and reaps it.
  void waitForEnd() {
    siginfo_t info{};
    uninterrupted([&] { return ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOWAIT); });
    {
      const std::lock_guard lock(mutex_);
      reapProcess(pid_);
      isReaped_ = true;
    }
    reaped_.notify_all();
  }

  /// Blocks until `deadline` or the child's end, and terminates a child that still runs.
  void terminateAt(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock lock(mutex_);
    if (!reaped_.wait_until(lock, deadline, [this] { return isReaped_; })) ::kill(pid_, SIGTERM);
  }

 private:
  [[nodiscard]] bool runsByTheKernelsWord() const {
    siginfo_t info{};  // where nothing is to report, some systems leave it as it is
    const int answer = ::waitid(P_PID, static_cast<id_t>(pid_), &info, WEXITED | WNOHANG | WNOWAIT);
    return answer == 0 && info.si_pid == 0;
  }

  const pid_t pid_;
  mutable std::mutex mutex_;
  std::condition_variable reaped_;
  bool isReaped_ = false;
};

/// Starts a detached thread that takes no signal: those of the program are for its main thread. Throws
/// std::system_error.
template <class... Arguments>
void startDetached(Arguments&&... arguments) {
  struct SignalsBlocked {
    SignalsBlocked() {
      sigset_t all;
      sigfillset(&all);
      pthread_sigmask(SIG_SETMASK, &all, &previous);
    }
    SignalsBlocked(const SignalsBlocked&) = delete;
    SignalsBlocked& operator=(const SignalsBlocked&) = delete;
    ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &previous, nullptr); }
    sigset_t previous{};
  };
  const SignalsBlocked blocked;
  std::thread(std::forward<Arguments>(arguments)...).detach();
}

class PosixChildProcess final : public ChildProcess {
 public:
  explicit PosixChildProcess(std::shared_ptr<Child> child) : child_(std::move(child)) {}

  [[nodiscard]] bool isRunning() const override { return child_->isRunning(); }
  void interrupt() override { child_->signal(SIGINT); }

  void terminateAfter(std::chrono::nanoseconds delay) override {
    const auto deadline = std::chrono::steady_clock::now() + delay;
    try {
      startDetached(&Child::terminateAt, child_, deadline);
    } catch (const std::system_error&) {
      child_->signal(
          SIGTERM);  // no thread can wait: a child that is not wanted ends too early rather than never
    }
  }

 private:
  std::shared_ptr<Child> child_;
};

std::vector<std::string> environmentList(const std::map<std::string, std::string>& environment) {
  std::vector<std::string> list;
  list.reserve(environment.size());
  for (const auto& [name, value] : environment) {
    std::string& entry = list.emplace_back(name);
    entry += '=';
    entry += value;
  }
  return list;
}

std::shared_ptr<Child> launchChild(const ChildSpec& spec) {
  const int output = spec.output ? spec.output->descriptor() : -1;
  return std::make_shared<Child>(
      spawnProcess(SpawnRequest{spec.executable, spec.arguments, environmentList(spec.environment),
                                spec.workingFolder, output, output}));
}

}  // namespace

/// The end notices that are still to come. Main thread only, so that what a notice holds is never destroyed
/// on another thread; other threads pass it on weakly.
class PosixProcessSpawner::Notices {
 public:
  std::uint64_t add(std::function<void()> ended) {
    ended_.emplace(next_, std::move(ended));
    return next_++;
  }

  void remove(std::uint64_t notice) { ended_.erase(notice); }

  void deliver(std::uint64_t notice) {
    const auto taken = ended_.extract(notice);
    if (taken && taken.mapped()) taken.mapped()();
  }

 private:
  std::map<std::uint64_t, std::function<void()>> ended_;
  std::uint64_t next_ = 0;
};

/// The way from the waiting threads to the main loop, closed when the spawner is destroyed. Any thread.
class PosixProcessSpawner::MainLoop {
 public:
  explicit MainLoop(Clock& clock) : clock_(&clock) {}

  void post(Clock::Turn turn) {
    const std::lock_guard lock(mutex_);
    if (clock_) clock_->post(std::move(turn));
  }

  void close() {
    const std::lock_guard lock(mutex_);
    clock_ = nullptr;
  }

 private:
  std::mutex mutex_;
  Clock* clock_;
};

PosixProcessSpawner::PosixProcessSpawner(Clock& clock)
    : notices_(std::make_shared<Notices>()), mainLoop_(std::make_shared<MainLoop>(clock)) {
  keepEndedChildren();
}

PosixProcessSpawner::~PosixProcessSpawner() { mainLoop_->close(); }

std::shared_ptr<ChildProcess> PosixProcessSpawner::launch(const ChildSpec& spec,
                                                          std::function<void()> ended) {
  std::shared_ptr<Child> child = launchChild(spec);
  const std::uint64_t notice = notices_->add(std::move(ended));
  const auto waitAndNotify = [child, notice, mainLoop = mainLoop_, notices = std::weak_ptr(notices_)] {
    child->waitForEnd();
    mainLoop->post([notice, notices] {
      if (const std::shared_ptr<Notices> here = notices.lock()) here->deliver(notice);
    });
  };
  try {
    startDetached(waitAndNotify);
  } catch (const std::system_error& refusal) {
    notices_->remove(notice);
    child->signal(SIGKILL);  // nobody can wait for its end, so it must not go on
    child->waitForEnd();
    throw systemFailure(quotedName(spec.executable) + " could not be started", refusal.code().value());
  }
  return std::make_shared<PosixChildProcess>(std::move(child));
}

}  // namespace zunto
