// What every CommandRunner does, the scripted one and the real one alike, and what the real one owes to the
// system.

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include "platform/posix/posix_command_runner.h"
#include "platform/system_error.h"
#include "temporary_folder.h"
#include "tests/fakes/fake_command_runner.h"

namespace zunto::testing {
namespace {

struct Command {
  std::filesystem::path executable;
  std::vector<std::string> arguments;
};

class RealHarness {
 public:
  [[nodiscard]] PosixCommandRunner& runner() { return runner_; }
  static constexpr std::size_t keptOutput = PosixCommandRunner::keptOutput;

  [[nodiscard]] Command printing(const std::string& text, int exitStatus) {
    return {"/bin/sh", {"-c", "printf %s \"$1\"; exit \"$2\"", "sh", text, std::to_string(exitStatus)}};
  }
  [[nodiscard]] Command printingZeros(std::size_t count, int exitStatus) {
    return {"/bin/sh",
            {"-c", "head -c \"$1\" /dev/zero; exit \"$2\"", "sh", std::to_string(count),
             std::to_string(exitStatus)}};
  }
  [[nodiscard]] Command endedBySignal(int number) {
    return {"/bin/sh", {"-c", "printf partial; kill -" + std::to_string(number) + " $$"}};
  }
  [[nodiscard]] Command missing() { return {folder_.path() / "curl", {}}; }

 private:
  TemporaryFolder folder_;
  PosixCommandRunner runner_;
};

class FakeHarness {
 public:
  [[nodiscard]] FakeCommandRunner& runner() { return runner_; }
  static constexpr std::size_t keptOutput = FakeCommandRunner::keptOutput;

  [[nodiscard]] Command printing(const std::string& text, int exitStatus) {
    runner_.answer(exitStatus, text);
    return {"/bin/sh", {}};
  }
  [[nodiscard]] Command printingZeros(std::size_t count, int exitStatus) {
    return printing(std::string(count, '\0'), exitStatus);
  }
  [[nodiscard]] Command endedBySignal(int number) { return printing("partial", 128 + number); }
  [[nodiscard]] Command missing() {
    runner_.refuse("No such file or directory");
    return {"/usr/bin/curl", {}};
  }

 private:
  FakeCommandRunner runner_;
};

template <class Harness>
class CommandContract : public ::testing::Test {
 protected:
  CommandResult run(const Command& command) {
    return world_.runner().run(command.executable, command.arguments);
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
TYPED_TEST_SUITE(CommandContract, Harnesses, HarnessNames);

TYPED_TEST(CommandContract, AnswersTheOutputOfACommandThatSucceeds) {
  const CommandResult result = this->run(this->world_.printing(R"({"status":"ok"})", 0));
  EXPECT_EQ(result.exitStatus, 0);
  EXPECT_EQ(result.standardOutput, R"({"status":"ok"})");
}

TYPED_TEST(CommandContract, AnswersTheOutputOfACommandThatFails) {
  const CommandResult result = this->run(this->world_.printing("half", 22));
  EXPECT_EQ(result.exitStatus, 22);
  EXPECT_EQ(result.standardOutput, "half");
}

TYPED_TEST(CommandContract, AnswersASignalAboveAllExitCodesOfTheCommand) {
  const CommandResult result = this->run(this->world_.endedBySignal(15));
  EXPECT_EQ(result.exitStatus, 128 + 15);
  EXPECT_EQ(result.standardOutput, "partial");
}

TYPED_TEST(CommandContract, KeepsEveryByteUpToItsBound) {
  const CommandResult result = this->run(this->world_.printingZeros(this->world_.keptOutput, 0));
  EXPECT_EQ(result.standardOutput, std::string(std::size_t{1} << 20, '\0'));
}

TYPED_TEST(CommandContract, DropsWhatIsBeyondItsBoundAndStillAnswersTheExitStatus) {
  const CommandResult result = this->run(this->world_.printingZeros(this->world_.keptOutput * 3, 5));
  EXPECT_EQ(result.exitStatus, 5);
  EXPECT_EQ(result.standardOutput.size(), std::size_t{1} << 20);
}

TYPED_TEST(CommandContract, RefusesAnExecutableThatIsNotThere) {
  try {
    static_cast<void>(this->run(this->world_.missing()));
    FAIL() << "the launch was not refused";
  } catch (const SystemError& refusal) {
    EXPECT_EQ(refusal.message(), "\"curl\" could not be started: No such file or directory.");
  }
}

CommandResult runScript(const std::string& script) {
  return PosixCommandRunner().run("/bin/sh", {"-c", script});
}

TEST(PosixCommands, HandsArgumentsOverUntouched) {
  const CommandResult result =
      PosixCommandRunner().run("/bin/sh", {"-c", "printf '<%s>' \"$@\"", "sh", "two words", "", "--", "*"});
  EXPECT_EQ(result.standardOutput, "<two words><><--><*>");
}

TEST(PosixCommands, DropsStandardError) {
  EXPECT_EQ(runScript("echo out; echo err >&2").standardOutput, "out\n");
}

TEST(PosixCommands, GivesTheCommandNothingToRead) {
  EXPECT_EQ(runScript("cat; echo end").standardOutput, "end\n");
}

TEST(PosixCommands, GivesTheCommandTheThreeStandardDescriptorsAndNoOther) {
  EXPECT_EQ(runScript("n=0; while [ $n -lt 256 ]; do [ -e /dev/fd/$n ] && echo $n; n=$((n+1)); done")
                .standardOutput,
            "0\n1\n2\n");
}

TEST(PosixCommands, InheritsEnvironmentAndWorkingFolder) {
  ::setenv("ZUNTO_TEST_VARIABLE", "a value", 1);
  const CommandResult result = runScript("echo \"$ZUNTO_TEST_VARIABLE\"; pwd -P");
  ::unsetenv("ZUNTO_TEST_VARIABLE");
  EXPECT_EQ(result.standardOutput,
            "a value\n" + std::filesystem::canonical(std::filesystem::current_path()).string() + "\n");
}

TEST(PosixCommands, WaitsForACommandThatClosesItsOutputEarly) {
  EXPECT_EQ(runScript("exec >&-; sleep 0.1; exit 4").exitStatus, 4);
}

TEST(PosixCommands, GoesOnWhenASignalInterruptsIt) {
  struct sigaction action {};  // without SA_RESTART: blocking calls end early
  struct sigaction previous {};
  action.sa_handler = [](int) {};
  ::sigaction(SIGUSR1, &action, &previous);
  std::atomic<bool> isDone = false;
  std::thread disturber([&isDone, main = ::pthread_self()] {
    while (!isDone) {
      ::pthread_kill(main, SIGUSR1);
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
  });
  const CommandResult result = runScript("sleep 0.1; echo one; exec >&-; sleep 0.1; exit 4");
  isDone = true;
  disturber.join();
  ::sigaction(SIGUSR1, &previous, nullptr);
  EXPECT_EQ(result.standardOutput, "one\n");
  EXPECT_EQ(result.exitStatus, 4);
}

}  // namespace
}  // namespace zunto::testing
