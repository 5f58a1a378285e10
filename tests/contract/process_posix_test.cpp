// What the real process backend owes to the system around it, beyond what a scripted one could show.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "platform/posix/descriptor.h"
#include "platform/posix/posix_command_runner.h"
#include "platform/system_error.h"
#include "real_processes.h"

namespace zunto::testing {
namespace {

using namespace std::chrono_literals;

/// Gives one signal another disposition for the time of a test.
class Disposition {
 public:
  Disposition(int number, void (*handler)(int)) : number_(number) {
    struct sigaction action {};
    action.sa_handler = handler;
    ::sigaction(number, &action, &previous_);
  }
  Disposition(const Disposition&) = delete;
  Disposition& operator=(const Disposition&) = delete;
  ~Disposition() { ::sigaction(number_, &previous_, nullptr); }

 private:
  int number_;
  struct sigaction previous_ {};
};

/// Blocks one signal in the test's thread for the time of a test.
class Blocked {
 public:
  explicit Blocked(int number) {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, number);
    ::pthread_sigmask(SIG_BLOCK, &set, &previous_);
  }
  Blocked(const Blocked&) = delete;
  Blocked& operator=(const Blocked&) = delete;
  ~Blocked() { ::pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }

 private:
  sigset_t previous_{};
};

class PosixProcesses : public ::testing::Test {
 protected:
  /// What `child` leaves in the log when it is run to its end.
  std::string outputOf(const ChildSpec& child) {
    bool hasEnded = false;
    world_.launch(child, [&] { hasEnded = true; });
    EXPECT_TRUE(world_.wait([&] { return hasEnded; }));
    return world_.logged();
  }

  /// Whether a child that sends itself `number` goes on living.
  bool survives(int number) {
    const std::string before = world_.logged();
    const std::string name = std::to_string(number);
    return outputOf(world_.script("kill -" + name + " $$; echo survived")) != before;
  }

  RealProcesses world_;
};

/// Whether every child of this program has been reaped.
bool hasNoChildren() {
  siginfo_t info{};
  return ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT) == -1 && errno == ECHILD;
}

std::string openDescriptorsScript() {
  return "n=0; while [ $n -lt 256 ]; do [ -e /dev/fd/$n ] && echo $n; n=$((n+1)); done; :";
}

TEST_F(PosixProcesses, GivesTheChildTheThreeStandardDescriptorsAndNoOther) {
  const Descriptor leaked(::open("/dev/null", O_RDONLY));  // as a careless library leaves it
  const Descriptor alsoLeaked(::dup(leaked.number()));
  ASSERT_EQ(::fcntl(leaked.number(), F_GETFD) & FD_CLOEXEC, 0);
  EXPECT_EQ(outputOf(world_.script(openDescriptorsScript())), "0\n1\n2\n");
}

TEST_F(PosixProcesses, GivesTheChildTheNullDeviceAsStandardInput) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  const Descriptor readEnd(ends[0]);
  Descriptor writeEnd(ends[1]);
  ASSERT_EQ(::write(writeEnd.number(), "secret", 6), 6);
  writeEnd.close();
  const Descriptor kept(::dup(STDIN_FILENO));
  ASSERT_EQ(::dup2(readEnd.number(), STDIN_FILENO), STDIN_FILENO);
  const std::string output = outputOf(world_.script("cat; echo end"));
  ::dup2(kept.number(), STDIN_FILENO);
  EXPECT_EQ(output, "end\n");
}

TEST_F(PosixProcesses, LaunchesFromAProgramThatWasStartedWithoutStandardDescriptors) {
  std::vector<Descriptor> kept;
  for (int number = 0; number < 3; ++number) {
    kept.emplace_back(::fcntl(number, F_DUPFD_CLOEXEC, 10));
    ::close(number);
  }
  Descriptor placeholder(::open("/dev/null", O_RDONLY));  // the log gets a number that the child needs itself
  ChildSpec child = world_.script("cat; echo one; echo two >&2; " + openDescriptorsScript());
  const int logDescriptor = child.output->descriptor();
  placeholder.close();
  const std::string output = outputOf(child);
  child.output.reset();
  for (int number = 0; number < 3; ++number) ::dup2(kept[static_cast<std::size_t>(number)].number(), number);
  EXPECT_EQ(logDescriptor, STDOUT_FILENO);
  EXPECT_EQ(output, "one\ntwo\n0\n1\n2\n");
}

TEST_F(PosixProcesses, KeepsItsOwnDescriptorsFromChildrenOfOthers) {
  const std::shared_ptr<OutputFile> log = world_.openLog();
  EXPECT_NE(::fcntl(log->descriptor(), F_GETFD) & FD_CLOEXEC, 0);
}

TEST_F(PosixProcesses, PassesItsPathAsTheFirstArgument) {
  EXPECT_EQ(outputOf(world_.spec("/bin/sh", {"-c", "echo $0"})), "/bin/sh\n");
}

TEST_F(PosixProcesses, GivesTheChildDefaultDispositionsForSignalsThatTheProgramIgnores) {
  for (const int number : {SIGHUP, SIGINT, SIGPIPE, SIGTERM, SIGUSR1}) {
    const Disposition ignored(number, SIG_IGN);
    EXPECT_FALSE(survives(number)) << number;
  }
}

TEST_F(PosixProcesses, GivesTheChildAnEmptySignalMask) {
  for (const int number : {SIGHUP, SIGINT, SIGPIPE, SIGTERM, SIGUSR1}) {
    const Blocked blocked(number);
    EXPECT_FALSE(survives(number)) << number;
  }
}

TEST_F(PosixProcesses, TakesNoSignalOfTheProgramOnAnotherThread) {
  bool hasEnded = false;
  const auto child = world_.launch(world_.script("exec sleep 60"), [&] { hasEnded = true; });
  child->terminateAfter(60s);
  std::this_thread::sleep_for(50ms);  // its threads have had the time to start
  const Blocked blocked(SIGUSR1);
  ASSERT_EQ(::kill(::getpid(), SIGUSR1),
            0);  // on any thread that does not block it, it would end the program
  sigset_t pending;
  sigemptyset(&pending);
  ASSERT_EQ(::sigpending(&pending), 0);
  EXPECT_EQ(sigismember(&pending, SIGUSR1), 1);
  int taken = 0;
  sigemptyset(&pending);
  sigaddset(&pending, SIGUSR1);
  EXPECT_EQ(::sigwait(&pending, &taken), 0);
  child->interrupt();
  EXPECT_TRUE(world_.wait([&] { return hasEnded; }));
}

TEST_F(PosixProcesses, TerminatesWithoutTheMainLoop) {
  const auto child = world_.launch(world_.script("trap '' INT; echo ready; exec sleep 60"));
  ASSERT_TRUE(world_.waitWithoutTurns([&] { return world_.logged() == "ready\n"; }));
  child->interrupt();
  child->terminateAfter(20ms);
  EXPECT_TRUE(world_.waitWithoutTurns([&] { return !child->isRunning(); }));
}

TEST_F(PosixProcesses, ReapsItsChildren) {
  outputOf(world_.script("exit 3"));
  EXPECT_TRUE(hasNoChildren());
}

TEST_F(PosixProcesses, SeesAnEndedChildNotRunningByTheKernelsWordAlone) {
  for (int round = 0; round < 50; ++round) {
    const std::string before = world_.logged();
    const auto child = world_.launch(world_.script("echo $$; sleep 0.01"));
    ASSERT_TRUE(world_.waitWithoutTurns([&] { return world_.logged().size() > before.size(); }));
    const auto pid = static_cast<id_t>(std::stoi(world_.logged().substr(before.size())));
    siginfo_t info{};
    ::waitid(P_PID, pid, &info, WEXITED | WNOWAIT);  // at the same moment as the backend's own thread
    ASSERT_FALSE(child->isRunning()) << round;
  }
}

TEST_F(PosixProcesses, NeverReapsAChildThatIsNotItsOwn) {
  const pid_t stranger = ::fork();
  if (stranger == 0) ::_exit(7);
  outputOf(world_.script("exit 3"));
  int status = 0;
  ASSERT_EQ(::waitpid(stranger, &status, 0), stranger);
  EXPECT_EQ(WEXITSTATUS(status), 7);
}

TEST_F(PosixProcesses, SeesTheEndOfChildrenInAProgramThatWasStartedWithTheirEndIgnored) {
  const Disposition ignored(SIGCHLD, SIG_IGN);
  VirtualClock clock;
  PosixProcessSpawner spawner(clock);
  bool hasEnded = false;
  const auto child = spawner.launch(world_.script("exit 3"), [&] { hasEnded = true; });
  EXPECT_TRUE(world_.waitWithoutTurns([&] {
    clock.runTurns();
    return hasEnded;
  }));
  EXPECT_FALSE(child->isRunning());
  EXPECT_EQ(PosixCommandRunner().run("/bin/sh", {"-c", "exit 3"}).exitStatus, 3);
}

TEST_F(PosixProcesses, SeesAnEndedChildInAProgramThatReapsByItself) {
  const auto child = world_.launch(world_.script("exit 3"));
  while (::waitpid(-1, nullptr, 0) > 0) {  // as no library should
  }
  EXPECT_FALSE(child->isRunning());
  child->interrupt();
}

TEST_F(PosixProcesses, NeverRunsAFileWithoutAnInterpreterThroughAShell) {
  const std::filesystem::path file = world_.folder() / "node";
  std::ofstream(file) << "echo ran\n";
  std::filesystem::permissions(file, std::filesystem::perms::owner_all);
  try {
    world_.launch(world_.spec(file));
    FAIL() << "the launch was not refused";
  } catch (const SystemError& refusal) {
    EXPECT_EQ(refusal.message(), "\"node\" could not be started: Exec format error.");
  }
}

TEST_F(PosixProcesses, DoesNotWaitForARunningChildWhenItIsDestroyed) {
  const auto child = world_.launch(world_.script("exec sleep 60"));
  child->terminateAfter(60s);
  const auto before = std::chrono::steady_clock::now();
  world_.destroySpawner();
  EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
  EXPECT_TRUE(child->isRunning());
}

/// A main loop that only counts what is posted to it.
class CountingClock final : public Clock {
 public:
  [[nodiscard]] std::chrono::nanoseconds now() const override { return {}; }
  [[nodiscard]] std::unique_ptr<Timer> callLater(std::chrono::nanoseconds, Turn) override { return nullptr; }
  void post(Turn) override { ++posts; }

  std::atomic<int> posts = 0;
};

TEST_F(PosixProcesses, LeavesTheMainLoopAloneOnceTheSpawnerIsDestroyed) {
  CountingClock clock;
  std::optional<PosixProcessSpawner> spawner(std::in_place, clock);
  const auto first = spawner->launch(world_.script("exit 3"), [] {});
  ASSERT_TRUE(world_.waitWithoutTurns([&] { return clock.posts == 1; }));
  const auto second = spawner->launch(world_.script("exec sleep 60"), [] {});
  spawner.reset();
  second->interrupt();
  ASSERT_TRUE(world_.waitWithoutTurns(hasNoChildren));
  std::this_thread::sleep_for(50ms);  // its thread has had the time to post
  EXPECT_EQ(clock.posts, 1);
}

void exitWithAChildRunning() {
  RealProcesses world;
  const auto child = world.launch(
      world.script("n=0; while [ $n -lt 200 ] && kill -0 $PPID; do sleep 0.1; n=$((n+1)); done"));
  child->terminateAfter(20s);
  std::filesystem::remove_all(world.folder());  // nobody else does when the program ends here
  std::exit(child->isRunning() ? 0 : 1);
}

TEST(PosixProcessesDeathTest, DoesNotHoldUpTheEndOfTheProgram) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EXIT(exitWithAChildRunning(), ::testing::ExitedWithCode(0), "");
  EXPECT_LT(std::chrono::steady_clock::now() - before, 15s);
}

}  // namespace
}  // namespace zunto::testing
