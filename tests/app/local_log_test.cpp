#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "helper_world.h"

namespace zunto {
namespace {

using namespace std::chrono_literals;
using testing::HelperWorld;
using testing::logFile;
using testing::logFolder;
using Locations = std::vector<std::filesystem::path>;

constexpr std::size_t showLog = 6;

struct LocalLogTest : ::testing::Test {
  HelperWorld world;

  LocalLogTest() { world.launch(); }

  void start() {
    world.start();
    world.clock.runTurns();
  }
};

using LocalLogEdgeCases = LocalLogTest;

TEST_F(LocalLogEdgeCases, AFirstLaunchMakesFolderAndEmptyFileAndTheOutputIsAtItsStart) {
  ASSERT_FALSE(world.files.exists("/home/user"));
  start();
  EXPECT_TRUE(world.files.isFolder("/home/user/Library/Logs/ZUNTO Helper"));
  EXPECT_EQ(world.files.contents(logFile), "");
  world.child().write("first line\n");
  EXPECT_EQ(world.files.contents(logFile), "first line\n");
}

TEST_F(LocalLogEdgeCases, ASecondLaunchAppendsAndNothingIsErased) {
  start();
  world.child(0).write("first run\n");
  world.health.answerHealthy();
  world.clock.advance(150ms);
  world.delegate->stopProcessor();
  world.clock.runTurns();
  world.health.nobodyListens();
  start();
  ASSERT_EQ(world.launches(), 2U);
  world.child(1).write("second run\n");
  EXPECT_EQ(world.files.contents(logFile), "first run\nsecond run\n");
}

TEST_F(LocalLogEdgeCases, ShowLocalLogBeforeAnyLaunchMakesFolderAndEmptyFileAndSelectsIt) {
  world.choose(showLog);
  EXPECT_EQ(world.files.contents(logFile), "");
  EXPECT_EQ(world.workspace.revealedLocations(), Locations{logFile});
}

TEST_F(LocalLogEdgeCases, WhenTheFolderIsDeletedTheChildWritesOnAndShowLocalLogSelectsANewEmptyFile) {
  start();
  world.child().write("before\n");
  const auto deleted = world.files.fileData(logFile);
  world.files.removeTree(logFolder);
  world.child().write("after\n");
  world.choose(showLog);
  EXPECT_EQ(deleted->contents, "before\nafter\n");
  EXPECT_EQ(world.files.contents(logFile), "");
  EXPECT_EQ(world.workspace.revealedLocations(), Locations{logFile});
  EXPECT_TRUE(world.child().isRunning());
}

TEST_F(LocalLogTest, BothOutputsOfTheChildShareTheFileThatTheHelperHolds) {
  start();
  world.child().write("out\n");
  world.child().write("err\n");
  EXPECT_EQ(world.files.contents(logFile), "out\nerr\n");
  EXPECT_TRUE(world.fields().logHandle);
}

TEST_F(LocalLogTest, TheHelperItselfWritesNothingToIt) {
  world.files.addFile(logFile, "old\n");
  start();
  world.clock.advance(9s);
  ASSERT_EQ(world.alerts.openCount(), 1U);
  world.alerts.press(testing::showLogButton);
  world.clock.advance(20s);
  EXPECT_EQ(world.files.contents(logFile), "old\n");
}

TEST_F(LocalLogTest, AnExistingFileIsNeitherMadeAnewNorShortenedByShowingIt) {
  world.files.addFile(logFile, "old\n");
  world.journal.clear();
  world.choose(showLog);
  EXPECT_EQ(world.files.contents(logFile), "old\n");
  EXPECT_EQ(world.journal,
            (testing::Journal{"create folder ZUNTO Helper", "exists helper.log", "reveal helper.log"}));
}

TEST_F(LocalLogTest, TheWritePositionIsMovedToTheEndOnceSoAnOldChildCanOverwriteANewersFirstBytes) {
  start();
  world.child(0).ignore(SIGINT);
  world.health.answerHealthy();
  world.clock.advance(150ms);
  world.delegate->stopProcessor();
  world.health.nobodyListens();
  start();
  ASSERT_EQ(world.launches(), 2U);
  world.child(1).write("newer");
  world.child(0).write("OLD");
  EXPECT_EQ(world.files.contents(logFile), "OLDer");
}

TEST_F(LocalLogTest, AfterAStopTheChildStillWritesThroughItsOwnDescriptor) {
  start();
  world.child().ignore(SIGINT);
  world.delegate->stopProcessor();
  world.child().write("last words\n");
  EXPECT_EQ(world.files.contents(logFile), "last words\n");
}

// What goes wrong.

TEST_F(LocalLogTest, AFolderThatCannotBeMadeFailsALaunchAndMakesShowingDoNothing) {
  world.files.refuse("/home/user", "Read-only file system");
  world.journal.clear();
  world.choose(showLog);
  EXPECT_EQ(world.journal, testing::Journal{"create folder ZUNTO Helper"});
  start();
  ASSERT_EQ(world.alerts.openCount(), 1U);
  EXPECT_EQ(world.alerts.shown().at(0).messageText, "ZUNTO Helper could not start");
  world.alerts.press(testing::showLogButton);
  world.clock.runTurns();
  EXPECT_TRUE(world.workspace.revealedLocations().empty());
  EXPECT_FALSE(world.fields().isStarting);
  EXPECT_EQ(world.launches(), 0U);
}

TEST_F(LocalLogTest, AFileThatCannotBeMadeFailsTheLaunchAtTheOpeningAndIsRevealedAllTheSame) {
  world.files.addFolder(logFolder);
  world.files.refuse(logFile, "Permission denied");
  start();
  ASSERT_EQ(world.alerts.openCount(), 1U);
  EXPECT_EQ(world.alerts.shown().at(0).messageText, "ZUNTO Helper could not start");
  EXPECT_NE(world.alerts.shown().at(0).informativeText.find("could not be opened"), std::string::npos);
  EXPECT_FALSE(world.fields().logHandle);
  world.alerts.press(testing::showLogButton);
  world.clock.runTurns();
  EXPECT_EQ(world.workspace.revealedLocations(), Locations{logFile});
}

TEST_F(LocalLogTest, AFileThatExistsButCannotBeOpenedFailsTheLaunchTheSameWay) {
  world.files.addFile(logFile, "old\n");
  world.files.refuse(logFile, "Permission denied");
  start();
  ASSERT_EQ(world.alerts.shown().size(), 1U);
  EXPECT_EQ(world.alerts.shown().at(0).informativeText,
            "The file \"helper.log\" could not be opened: Permission denied.");
  EXPECT_EQ(world.launches(), 0U);
}

TEST_F(LocalLogTest, ALaunchThatFailsAfterTheOpeningReleasesTheFile) {
  world.spawner.refuseLaunches("Permission denied");
  start();
  EXPECT_FALSE(world.fields().logHandle);
  EXPECT_TRUE(world.files.exists(logFile));
}

}  // namespace
}  // namespace zunto
