// What the scripted children, files and commands offer to tests beyond what the real ones do.

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <string>
#include <vector>

#include "platform/system_error.h"
#include "tests/fakes/fake_command_runner.h"
#include "tests/fakes/fake_file_system.h"
#include "tests/fakes/fake_process_spawner.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto::testing {
namespace {

using namespace std::chrono_literals;

class ScriptedChildren : public ::testing::Test {
 protected:
  ScriptedChildren() {
    files_.addFile("/world/log");
    files_.addExecutable("/world/node");
  }

  [[nodiscard]] ChildSpec spec() {
    return {"/world/node", {}, "/world", {}, files_.openForWriting("/world/log")};
  }

  VirtualClock clock_;
  FakeFileSystem files_;
  FakeProcessSpawner spawner_{clock_, files_};
};

TEST_F(ScriptedChildren, EndOnceHoweverOftenTheyAreTold) {
  int ends = 0;
  const auto child = spawner_.launch(spec(), [&] { ++ends; });
  spawner_.children().front()->end();
  spawner_.children().front()->end();
  clock_.runTurns();
  EXPECT_EQ(ends, 1);
}

TEST_F(ScriptedChildren, RecordTheSignalsThatReachedThemWithTheirTimes) {
  spawner_.runProgram([](FakeChild& child) { child.ignore(SIGINT); });
  const auto child = spawner_.launch(spec(), [] {});
  clock_.advance(5s);
  child->interrupt();
  child->terminateAfter(2s);
  clock_.advance(10s);
  child->interrupt();
  const std::vector<FakeChild::Signal> expected{{SIGINT, 5s}, {SIGTERM, 7s}};
  EXPECT_EQ(spawner_.children().front()->signals(), expected);
}

TEST_F(ScriptedChildren, AreRefusedOnDemand) {
  spawner_.refuseLaunches("Permission denied");
  try {
    static_cast<void>(spawner_.launch(spec(), [] {}));
    FAIL() << "the launch was not refused";
  } catch (const SystemError& refusal) {
    EXPECT_EQ(refusal.message(), "\"node\" could not be started: Permission denied.");
  }
  spawner_.refuseNoLaunch();
  EXPECT_TRUE(spawner_.launch(spec(), [] {})->isRunning());
  EXPECT_EQ(spawner_.children().size(), 1U);
}

TEST(ScriptedFiles, RefuseChangesBelowAPlaceOnDemand) {
  FakeFileSystem files;
  files.addFile("/world/kept", "kept");
  files.refuse("/world", "Read-only file system");
  EXPECT_THROW(files.createFolder("/world/folder"), SystemError);
  EXPECT_THROW(files.removeFile("/world/kept"), SystemError);
  EXPECT_THROW(static_cast<void>(files.openForWriting("/world/kept")), SystemError);
  EXPECT_FALSE(files.createFile("/world/new"));
  EXPECT_TRUE(files.createFile("/world/kept"));
  files.createFolder("/world");
  files.createFolder("/worldwide");
  files.refuseNothing();
  files.removeFile("/world/kept");
  EXPECT_FALSE(files.exists("/world/kept"));
}

TEST(ScriptedFiles, FailToCloseOnDemandAndAreClosedAllTheSame) {
  FakeFileSystem files;
  files.addFile("/world/log");
  const auto file = files.openForWriting("/world/log");
  dynamic_cast<FakeOutputFile&>(*file).failClose("Input/output error");
  EXPECT_THROW(file->close(), SystemError);
  EXPECT_EQ(file->descriptor(), -1);
}

TEST(ScriptedCommands, AreRememberedWithTheirArguments) {
  FakeCommandRunner runner;
  EXPECT_EQ(runner.run("/usr/bin/curl", {"--fail", "address"}).exitStatus, 0);
  ASSERT_EQ(runner.runs().size(), 1U);
  EXPECT_EQ(runner.runs().front().executable, "/usr/bin/curl");
  EXPECT_EQ(runner.runs().front().arguments, (std::vector<std::string>{"--fail", "address"}));
}

}  // namespace
}  // namespace zunto::testing
