// The real process backend in a world of its own: a folder, a log file, a main loop whose turns run only
// while a test waits, and /bin/sh scripts as children.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/posix/posix_file_system.h"
#include "platform/posix/posix_process_spawner.h"
#include "temporary_folder.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto::testing {

/// How long a wait goes on at most before its test fails: far more than any machine under load needs.
inline constexpr std::chrono::seconds realDeadline{30};

class RealProcesses {
 public:
  RealProcesses() { PosixFileSystem().createFile(logFile()); }
  RealProcesses(const RealProcesses&) = delete;
  RealProcesses& operator=(const RealProcesses&) = delete;
  ~RealProcesses() {
    for (const auto& child : launched_) child->terminateAfter(std::chrono::nanoseconds::zero());
    for (const auto& child : launched_) waitWithoutTurns([&] { return !child->isRunning(); });
  }

  [[nodiscard]] VirtualClock& clock() { return clock_; }
  [[nodiscard]] PosixProcessSpawner& spawner() { return *spawner_; }
  void destroySpawner() { spawner_.reset(); }

  [[nodiscard]] std::filesystem::path folder() const { return folder_.path(); }
  [[nodiscard]] std::filesystem::path logFile() const { return folder() / "log"; }

  /// The log, opened as the launcher does; children append from its present end on.
  [[nodiscard]] std::shared_ptr<OutputFile> openLog() const {
    std::shared_ptr<OutputFile> log = PosixOutputFileOpener().openForWriting(logFile());
    log->seekToEnd();
    return log;
  }
  [[nodiscard]] std::string logged() const {
    std::ifstream file(logFile(), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  [[nodiscard]] ChildSpec spec(std::filesystem::path executable,
                               std::vector<std::string> arguments = {}) const {
    return {std::move(executable), std::move(arguments), folder(), {{"PATH", "/usr/bin:/bin"}}, openLog()};
  }
  [[nodiscard]] ChildSpec script(std::string text) const { return spec("/bin/sh", {"-c", std::move(text)}); }

  /// Launches, holds the child and sees to it that it does not outlive the test.
  std::shared_ptr<ChildProcess> launch(
      const ChildSpec& child, std::function<void()> ended = [] {}) {
    auto process = spawner().launch(child, std::move(ended));
    launched_.push_back(process);
    return process;
  }

  /// Lets real time pass without a turn of the main loop until `condition` holds; answers whether it did.
  template <class Condition>
  bool waitWithoutTurns(Condition condition) const {
    return waitUntil(condition, [] {});
  }
  /// The same with turns.
  template <class Condition>
  bool wait(Condition condition) {
    return waitUntil(condition, [this] { clock_.runTurns(); });
  }

  [[nodiscard]] std::chrono::nanoseconds now() const {
    return std::chrono::steady_clock::now().time_since_epoch();
  }

 private:
  template <class Condition, class Step>
  bool waitUntil(Condition condition, Step step) const {
    const auto deadline = std::chrono::steady_clock::now() + realDeadline;
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      step();
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
  }

  TemporaryFolder folder_;
  VirtualClock clock_;
  std::optional<PosixProcessSpawner> spawner_{std::in_place, clock_};
  std::vector<std::shared_ptr<ChildProcess>> launched_;
};

}  // namespace zunto::testing
