// What every ProcessSpawner does, the scripted one and the real one alike.

#include <gtest/gtest.h>

#include <algorithm>
#include <csignal>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "platform/system_error.h"
#include "real_processes.h"
#include "tests/fakes/fake_file_system.h"
#include "tests/fakes/fake_process_spawner.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto::testing {
namespace {

using namespace std::chrono_literals;

enum class Behaviour {
  endsAtOnce,
  runsOn,                  // writes "ready" first
  ignoresInterrupts,       // the same, and only SIGTERM ends it
  writesWhenInterrupted,   // the same, then writes "late" and ends on SIGINT
  writesToBothStreams,     // "one" to standard output, "two" to standard error, "three" to standard output
  printsArguments,         // each in angle brackets, ended by a line end
  printsWorkingFolder,     // and a line end
  printsSortedEnvironment  // NAME=value and a line end, each
};

class RealHarness : public RealProcesses {
 public:
  [[nodiscard]] ChildSpec child(Behaviour behaviour) const {
    switch (behaviour) {
      case Behaviour::endsAtOnce:
        return script("exit 3");
      case Behaviour::runsOn:
        return script("echo ready; exec sleep 60");
      case Behaviour::ignoresInterrupts:
        return script("trap '' INT; echo ready; exec sleep 60");
      case Behaviour::writesWhenInterrupted:
        return script("trap 'echo late; exit' INT; echo ready; while :; do sleep 0.05; done");
      case Behaviour::writesToBothStreams:
        return script("echo one; echo two >&2; echo three");
      case Behaviour::printsArguments:
        return spec("/bin/sh", {"-c", R"(printf '<%s>' "$@"; echo)", "sh"});
      case Behaviour::printsWorkingFolder:
        return spec("/bin/pwd", {"-P"});
      case Behaviour::printsSortedEnvironment:
        break;
    }
    return spec("/usr/bin/env");
  }

  void addFile(const std::filesystem::path& path) const { std::ofstream{path}; }
  void addFolder(const std::filesystem::path& path) const { std::filesystem::create_directory(path); }
};

class FakeHarness {
 public:
  FakeHarness() {
    files_.addFile(logFile());
    files_.addExecutable("/bin/sh");
    spawner_->runProgram([this](FakeChild& child) { run(child); });
  }

  [[nodiscard]] VirtualClock& clock() { return clock_; }
  [[nodiscard]] FakeProcessSpawner& spawner() { return *spawner_; }
  void destroySpawner() { spawner_.reset(); }
  [[nodiscard]] std::filesystem::path folder() const { return "/world/processor"; }
  [[nodiscard]] std::filesystem::path logFile() const { return folder() / "log"; }
  [[nodiscard]] std::string logged() const { return files_.contents(logFile()).value(); }
  void addFile(const std::filesystem::path& path) { files_.addFile(path); }
  void addFolder(const std::filesystem::path& path) { files_.addFolder(path); }

  [[nodiscard]] std::shared_ptr<OutputFile> openLog() {
    std::shared_ptr<OutputFile> log = files_.openForWriting(logFile());
    log->seekToEnd();
    return log;
  }

  [[nodiscard]] ChildSpec child(Behaviour behaviour) {
    next_ = behaviour;
    return {"/bin/sh", {}, folder(), {}, openLog()};
  }

  std::shared_ptr<ChildProcess> launch(
      const ChildSpec& child, std::function<void()> ended = [] {}) {
    return spawner().launch(child, std::move(ended));
  }

  template <class Condition>
  bool waitWithoutTurns(Condition condition) const {
    return condition();
  }
  template <class Condition>
  bool wait(Condition condition) {
    for (auto waited = 0ns; !condition(); waited += 10ms) {
      if (waited > realDeadline) return false;
      clock_.advance(10ms);
    }
    return true;
  }
  [[nodiscard]] std::chrono::nanoseconds now() const { return clock_.now(); }

 private:
  void run(FakeChild& child) const {
    switch (next_) {
      case Behaviour::endsAtOnce:
        return child.end();
      case Behaviour::runsOn:
        return child.write("ready\n");
      case Behaviour::ignoresInterrupts:
        child.ignore(SIGINT);
        return child.write("ready\n");
      case Behaviour::writesWhenInterrupted:
        child.onSignal(SIGINT, [](FakeChild& interrupted) {
          interrupted.write("late\n");
          interrupted.end();
        });
        return child.write("ready\n");
      default:
        print(child);
        return child.end();
    }
  }

  void print(FakeChild& child) const {
    if (next_ == Behaviour::writesToBothStreams) {
      for (const char* line : {"one\n", "two\n", "three\n"}) child.write(line);
    } else if (next_ == Behaviour::printsArguments) {
      for (const std::string& argument : child.spec().arguments) child.write("<" + argument + ">");
      child.write("\n");
    } else if (next_ == Behaviour::printsWorkingFolder) {
      child.write(child.spec().workingFolder.string() + "\n");
    } else {
      for (const auto& [name, value] : child.spec().environment) child.write(name + "=" + value + "\n");
    }
  }

  VirtualClock clock_;
  FakeFileSystem files_;
  std::optional<FakeProcessSpawner> spawner_{std::in_place, clock_, files_};
  Behaviour next_ = Behaviour::endsAtOnce;
};

template <class Harness>
class ProcessContract : public ::testing::Test {
 protected:
  /// Counts the end notices of one child.
  std::function<void()> count(int& ends) {
    return [&ends] { ++ends; };
  }

  std::shared_ptr<ChildProcess> launch(
      Behaviour behaviour, std::function<void()> ended = [] {}) {
    return world_.launch(world_.child(behaviour), std::move(ended));
  }

  /// The same, with the handle in nobody's hands but the caller's.
  std::shared_ptr<ChildProcess> launchUnheld(Behaviour behaviour, std::function<void()> ended) {
    return world_.spawner().launch(world_.child(behaviour), std::move(ended));
  }

  /// Launches and waits until the child has written its first line.
  std::shared_ptr<ChildProcess> launchReady(
      Behaviour behaviour, std::function<void()> ended = [] {}) {
    auto child = launch(behaviour, std::move(ended));
    EXPECT_TRUE(world_.wait([&] { return world_.logged() == "ready\n"; }));
    return child;
  }

  void runToItsEnd(const ChildSpec& child) {
    int ends = 0;
    world_.launch(child, count(ends));
    ASSERT_TRUE(world_.wait([&] { return ends == 1; }));
  }

  /// What the refusal of a launch says; empty when it was not refused.
  std::string refusalOf(
      const ChildSpec& child, std::function<void()> ended = [] {}) {
    try {
      world_.launch(child, std::move(ended));
    } catch (const SystemError& refusal) {
      return refusal.message();
    }
    return {};
  }

  Harness world_;
};

struct HarnessNames {
  template <class Harness>
  static std::string GetName(int) {
    return std::is_same_v<Harness, FakeHarness> ? "Fake" : "Posix";
  }
};
using Harnesses = ::testing::Types<FakeHarness, RealHarness>;
TYPED_TEST_SUITE(ProcessContract, Harnesses, HarnessNames);

TYPED_TEST(ProcessContract, DeliversTheEndOnALaterTurn) {
  int ends = 0;
  const auto child = this->launch(Behaviour::endsAtOnce, this->count(ends));
  ASSERT_TRUE(this->world_.waitWithoutTurns([&] { return !child->isRunning(); }));
  EXPECT_EQ(ends, 0);
  EXPECT_TRUE(this->world_.wait([&] { return ends > 0; }));
}

TYPED_TEST(ProcessContract, DeliversTheEndExactlyOnce) {
  int ends = 0;
  const auto first = this->launch(Behaviour::endsAtOnce, this->count(ends));
  ASSERT_TRUE(this->world_.wait([&] { return ends > 0; }));
  first->interrupt();
  first->terminateAfter(0ns);
  this->runToItsEnd(this->world_.child(Behaviour::endsAtOnce));
  EXPECT_EQ(ends, 1);
}

TYPED_TEST(ProcessContract, DeliversTheEndOfAChildThatNobodyHolds) {
  int ends = 0;
  const std::weak_ptr<ChildProcess> dropped = this->launchUnheld(Behaviour::endsAtOnce, this->count(ends));
  EXPECT_TRUE(dropped.expired());
  EXPECT_TRUE(this->world_.wait([&] { return ends == 1; }));
}

TYPED_TEST(ProcessContract, DeliversTheEndOfEveryOneOfManyChildren) {
  constexpr int children = 20;
  std::map<int, int> ends;
  for (int child = 0; child < children; ++child) {
    this->launch(Behaviour::endsAtOnce, [&ends, child] { ++ends[child]; });
  }
  ASSERT_TRUE(this->world_.wait([&] { return ends.size() == children; }));
  EXPECT_TRUE(std::all_of(ends.begin(), ends.end(), [](const auto& entry) { return entry.second == 1; }));
}

TYPED_TEST(ProcessContract, LetsTheNoticeOfAnEndLaunchTheNextChild) {
  int ends = 0;
  this->launch(Behaviour::endsAtOnce, [&] { this->launch(Behaviour::endsAtOnce, this->count(ends)); });
  EXPECT_TRUE(this->world_.wait([&] { return ends == 1; }));
}

TYPED_TEST(ProcessContract, LetsTheNoticeOfAnEndDestroyTheSpawner) {
  bool isDestroyed = false;
  int ends = 0;
  const auto other = this->launchReady(Behaviour::runsOn, this->count(ends));
  this->launch(Behaviour::endsAtOnce, [&] {
    this->world_.destroySpawner();
    isDestroyed = true;
  });
  EXPECT_TRUE(this->world_.wait([&] { return isDestroyed; }));
  other->interrupt();
  EXPECT_TRUE(this->world_.wait([&] { return !other->isRunning(); }));
  EXPECT_EQ(ends, 0);
}

TYPED_TEST(ProcessContract, SeesAChildRunUntilItIsInterrupted) {
  int ends = 0;
  const auto child = this->launchReady(Behaviour::runsOn, this->count(ends));
  EXPECT_TRUE(child->isRunning());
  EXPECT_EQ(ends, 0);
  child->interrupt();
  EXPECT_TRUE(this->world_.wait([&] { return ends == 1; }));
  EXPECT_FALSE(child->isRunning());
}

TYPED_TEST(ProcessContract, SeesAnEndedChildNotRunningBeforeItsNoticeWasProcessed) {
  int ends = 0;
  const auto child = this->launchReady(Behaviour::runsOn, this->count(ends));
  child->interrupt();
  EXPECT_TRUE(this->world_.waitWithoutTurns([&] { return !child->isRunning(); }));
  EXPECT_EQ(ends, 0);
}

TYPED_TEST(ProcessContract, LetsAChildActOnTheInterrupt) {
  int ends = 0;
  const auto child = this->launchReady(Behaviour::writesWhenInterrupted, this->count(ends));
  child->interrupt();
  ASSERT_TRUE(this->world_.wait([&] { return ends == 1; }));
  EXPECT_EQ(this->world_.logged(), "ready\nlate\n");
}

TYPED_TEST(ProcessContract, TerminatesAChildThatIgnoresTheInterruptNoEarlierThanAsked) {
  int ends = 0;
  const auto child = this->launchReady(Behaviour::ignoresInterrupts, this->count(ends));
  const auto asked = this->world_.now();
  child->interrupt();
  child->terminateAfter(300ms);
  EXPECT_TRUE(child->isRunning());
  ASSERT_TRUE(this->world_.wait([&] { return ends == 1; }));
  EXPECT_GE(this->world_.now() - asked, 300ms);
}

TYPED_TEST(ProcessContract, TerminatesAChildThatNobodyHoldsAnyMore) {
  int ends = 0;
  this->launchUnheld(Behaviour::ignoresInterrupts, this->count(ends))->terminateAfter(20ms);
  EXPECT_TRUE(this->world_.wait([&] { return ends == 1; }));
}

TYPED_TEST(ProcessContract, LeavesOtherChildrenAloneWhenTheOneToTerminateHasEnded) {
  int ends = 0;
  const auto other = this->launchReady(Behaviour::runsOn, this->count(ends));
  const auto ended = this->launch(Behaviour::endsAtOnce);
  ended->terminateAfter(20ms);
  const auto asked = this->world_.now();
  ASSERT_TRUE(this->world_.wait([&] { return this->world_.now() - asked > 100ms; }));
  EXPECT_FALSE(ended->isRunning());
  EXPECT_TRUE(other->isRunning());
  EXPECT_EQ(ends, 0);
}

TYPED_TEST(ProcessContract, TerminatesOnlyTheChildThatItWasAskedFor) {
  int ends = 0;
  int otherEnds = 0;
  const auto other = this->launchReady(Behaviour::runsOn, this->count(otherEnds));
  this->launch(Behaviour::runsOn, this->count(ends))->terminateAfter(0ns);
  ASSERT_TRUE(this->world_.wait([&] { return ends == 1; }));
  EXPECT_TRUE(other->isRunning());
  EXPECT_EQ(otherEnds, 0);
}

TYPED_TEST(ProcessContract, RefusesAnExecutableThatIsNotThere) {
  ChildSpec child = this->world_.child(Behaviour::endsAtOnce);
  child.executable = this->world_.folder() / "node";
  int ends = 0;
  EXPECT_EQ(this->refusalOf(child, this->count(ends)),
            "\"node\" could not be started: No such file or directory.");
  this->runToItsEnd(this->world_.child(Behaviour::endsAtOnce));
  EXPECT_EQ(ends, 0);
}

TYPED_TEST(ProcessContract, RefusesAFileThatIsNotExecutable) {
  ChildSpec child = this->world_.child(Behaviour::endsAtOnce);
  child.executable = this->world_.folder() / "node";
  this->world_.addFile(child.executable);
  EXPECT_EQ(this->refusalOf(child), "\"node\" could not be started: Permission denied.");
}

TYPED_TEST(ProcessContract, RefusesAFolderAsExecutable) {
  ChildSpec child = this->world_.child(Behaviour::endsAtOnce);
  child.executable = this->world_.folder() / "node";
  this->world_.addFolder(child.executable);
  EXPECT_EQ(this->refusalOf(child), "\"node\" could not be started: Permission denied.");
}

TYPED_TEST(ProcessContract, RefusesAWorkingFolderThatIsNotThere) {
  ChildSpec child = this->world_.child(Behaviour::endsAtOnce);
  child.workingFolder = this->world_.folder() / "gone";
  EXPECT_EQ(this->refusalOf(child),
            "\"sh\" could not be started in the folder \"gone\": No such file or directory.");
}

TYPED_TEST(ProcessContract, RefusesAFileAsWorkingFolder) {
  ChildSpec child = this->world_.child(Behaviour::endsAtOnce);
  child.workingFolder = this->world_.logFile();
  EXPECT_EQ(this->refusalOf(child), "\"sh\" could not be started in the folder \"log\": Not a directory.");
}

TYPED_TEST(ProcessContract, RefusesAnOutputThatIsClosed) {
  const ChildSpec child = this->world_.child(Behaviour::endsAtOnce);
  const std::shared_ptr<OutputFile> closed = this->world_.openLog();
  closed->close();
  ChildSpec refused = child;
  refused.output = closed;
  EXPECT_EQ(this->refusalOf(refused), "\"sh\" could not be started: Bad file descriptor.");
}

TYPED_TEST(ProcessContract, LaunchesAgainAfterARefusal) {
  ChildSpec child = this->world_.child(Behaviour::endsAtOnce);
  child.workingFolder = this->world_.folder() / "gone";
  ASSERT_NE(this->refusalOf(child), "");
  child.workingFolder = this->world_.folder();
  this->runToItsEnd(child);
}

TYPED_TEST(ProcessContract, HandsArgumentsOverUntouched) {
  ChildSpec child = this->world_.child(Behaviour::printsArguments);
  child.arguments.insert(child.arguments.end(), {"two words", "", "--", "$HOME *", "ü"});
  this->runToItsEnd(child);
  EXPECT_EQ(this->world_.logged(), "<two words><><--><$HOME *><ü>\n");
}

TYPED_TEST(ProcessContract, RunsInTheWorkingFolder) {
  this->runToItsEnd(this->world_.child(Behaviour::printsWorkingFolder));
  EXPECT_EQ(this->world_.logged(), this->world_.folder().string() + "\n");
}

TYPED_TEST(ProcessContract, GivesTheChildExactlyTheEnvironmentAsked) {
  ChildSpec child = this->world_.child(Behaviour::printsSortedEnvironment);
  child.environment = {{"EMPTY", ""}, {"HOST", "127.0.0.1"}, {"ODD", "a=b c"}};
  this->runToItsEnd(child);
  EXPECT_EQ(this->world_.logged(), "EMPTY=\nHOST=127.0.0.1\nODD=a=b c\n");
}

TYPED_TEST(ProcessContract, GivesTheChildNoEnvironmentWhenNoneIsAsked) {
  ChildSpec child = this->world_.child(Behaviour::printsSortedEnvironment);
  child.environment.clear();
  this->runToItsEnd(child);
  EXPECT_EQ(this->world_.logged(), "");
}

TYPED_TEST(ProcessContract, InterleavesBothStreamsInOneFile) {
  this->runToItsEnd(this->world_.child(Behaviour::writesToBothStreams));
  EXPECT_EQ(this->world_.logged(), "one\ntwo\nthree\n");
}

TYPED_TEST(ProcessContract, AppendsASecondChildsOutputToTheFirsts) {
  this->runToItsEnd(this->world_.child(Behaviour::writesToBothStreams));
  this->runToItsEnd(this->world_.child(Behaviour::writesToBothStreams));
  EXPECT_EQ(this->world_.logged(), "one\ntwo\nthree\none\ntwo\nthree\n");
}

TYPED_TEST(ProcessContract, LetsAChildWriteOnAfterTheProgramHasClosedTheFile) {
  const std::shared_ptr<OutputFile> log = this->world_.openLog();
  ChildSpec child = this->world_.child(Behaviour::writesWhenInterrupted);
  child.output = log;
  int ends = 0;
  const auto running = this->world_.launch(child, this->count(ends));
  log->close();
  ASSERT_TRUE(this->world_.wait([&] { return this->world_.logged() == "ready\n"; }));
  running->interrupt();
  ASSERT_TRUE(this->world_.wait([&] { return ends == 1; }));
  EXPECT_EQ(this->world_.logged(), "ready\nlate\n");
}

TYPED_TEST(ProcessContract, DoesNotKeepTheOutputFileOfTheProgramOpen) {
  ChildSpec child = this->world_.child(Behaviour::runsOn);
  const std::weak_ptr<const OutputFile> log = child.output;
  const auto running = this->world_.launch(child);
  child.output.reset();
  EXPECT_TRUE(log.expired());
}

TYPED_TEST(ProcessContract, CallsNothingBackOnceTheSpawnerIsDestroyed) {
  int ends = 0;
  const auto running = this->launchReady(Behaviour::runsOn, this->count(ends));
  this->world_.destroySpawner();
  EXPECT_TRUE(running->isRunning());
  running->interrupt();
  EXPECT_TRUE(this->world_.wait([&] { return !running->isRunning(); }));
  EXPECT_EQ(ends, 0);
}

TYPED_TEST(ProcessContract, DropsANoticeThatWasPostedBeforeTheSpawnerWasDestroyed) {
  int ends = 0;
  const auto ended = this->launch(Behaviour::endsAtOnce, this->count(ends));
  ASSERT_TRUE(this->world_.waitWithoutTurns([&] { return !ended->isRunning(); }));
  const auto since = this->world_.now();
  this->world_.destroySpawner();
  this->world_.wait([&] { return this->world_.now() - since > 50ms; });
  EXPECT_EQ(ends, 0);
}

TYPED_TEST(ProcessContract, ReleasesWhatANoticeHeldOnceItIsDelivered) {
  auto held = std::make_shared<bool>(false);
  const std::weak_ptr<bool> watched = held;
  this->launch(Behaviour::endsAtOnce, [kept = std::move(held)] { *kept = true; });
  EXPECT_FALSE(watched.expired());
  EXPECT_TRUE(this->world_.wait([&] { return watched.expired(); }));
}

TYPED_TEST(ProcessContract, ReleasesWhatNoticesHoldWithTheSpawner) {
  auto held = std::make_shared<int>(0);
  const std::weak_ptr<int> watched = held;
  const auto running = this->launchReady(Behaviour::runsOn, [kept = std::move(held)] { ++*kept; });
  EXPECT_FALSE(watched.expired());
  this->world_.destroySpawner();
  EXPECT_TRUE(watched.expired());
}

TYPED_TEST(ProcessContract, TerminatesAChildAlsoAfterTheSpawnerIsDestroyed) {
  const auto running = this->launchReady(Behaviour::ignoresInterrupts);
  running->terminateAfter(20ms);
  this->world_.destroySpawner();
  EXPECT_TRUE(this->world_.wait([&] { return !running->isRunning(); }));
}

}  // namespace
}  // namespace zunto::testing
