// Child processes that a test scripts. They end, write and answer signals as the test says; until told
// otherwise a child runs on, prints nothing, and ends at once on SIGINT or SIGTERM, as a real one does by
// default.
//
// Owner: the test, after the clock and the file system, which must outlive it. Thread: main thread only.
#pragma once

#include <chrono>
#include <csignal>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "async/clock.h"
#include "platform/process.h"
#include "tests/fakes/fake_file_system.h"

namespace zunto::testing {

/// The test's side of one launched child.
class FakeChild {
 public:
  struct Signal {
    int number;                   ///< SIGINT or SIGTERM
    std::chrono::nanoseconds at;  ///< by the clock
    bool operator==(const Signal&) const = default;
  };

  FakeChild(Clock& clock, ChildSpec spec, std::function<void(FakeChild&)> notifyEnd);

  [[nodiscard]] const ChildSpec& spec() const { return spec_; }
  [[nodiscard]] bool isRunning() const { return isRunning_; }
  /// The signals that reached it while it ran, oldest first.
  [[nodiscard]] const std::vector<Signal>& signals() const { return signals_; }

  /// Writes to its standard output or standard error: the same open file.
  void write(std::string_view bytes);
  /// Ends it now; its end notice comes on a later turn. Nothing when it has ended.
  void end();
  /// From now on `number` (SIGINT or SIGTERM) does not end it.
  void ignore(int number) { ignored_.insert(number); }
  /// From now on `respond` decides what `number` does.
  void onSignal(int number, std::function<void(FakeChild&)> respond);

  /// The system's side: delivers `number` when the child runs, now or after `delay`.
  void receive(int number);
  void receiveLater(int number, std::chrono::nanoseconds delay);

 private:
  Clock& clock_;
  ChildSpec spec_;
  std::shared_ptr<FakeOpenFile> output_;
  std::function<void(FakeChild&)> notifyEnd_;
  bool isRunning_ = true;
  std::vector<Signal> signals_;
  std::set<int> ignored_;
  std::map<int, std::function<void(FakeChild&)>> responses_;
  std::vector<std::unique_ptr<Timer>> delayedSignals_;
};

class FakeProcessSpawner final : public ProcessSpawner {
 public:
  using Program = std::function<void(FakeChild&)>;

  /// A launch needs the executable and the working folder in `files`.
  FakeProcessSpawner(Clock& clock, const FakeFileSystem& files);
  /// Children run on, but nothing is called back any more.
  ~FakeProcessSpawner() override;

  [[nodiscard]] std::shared_ptr<ChildProcess> launch(const ChildSpec& spec,
                                                     std::function<void()> ended) override;

  /// From now on `program` is called inside every launch, before it returns: the child's first deeds.
  void runProgram(Program program) { program_ = std::move(program); }
  /// From now on every launch is refused for `reason` (such as "Permission denied").
  void refuseLaunches(std::string reason) { refusal_ = std::move(reason); }
  void refuseNoLaunch() { refusal_.reset(); }

  /// Every child that was launched, oldest first.
  [[nodiscard]] const std::vector<std::shared_ptr<FakeChild>>& children() const { return children_; }

 private:
  struct Notices;

  void refuseWhatTheSystemRefuses(const ChildSpec& spec) const;

  Clock& clock_;
  const FakeFileSystem& files_;
  std::shared_ptr<Notices> notices_;
  Program program_;
  std::optional<std::string> refusal_;
  std::vector<std::shared_ptr<FakeChild>> children_;
};

}  // namespace zunto::testing
