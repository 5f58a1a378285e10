#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "helper_world.h"

namespace zunto {
namespace {

using namespace std::chrono_literals;
using testing::HelperWorld;
using testing::Journal;
using testing::WindowUse;

constexpr std::size_t openVideoImport = 3;
constexpr std::size_t openDownloader = 4;
constexpr std::size_t toggleHelper = 5;
constexpr std::size_t showLog = 6;
constexpr std::size_t quit = 8;

struct StatusMenuTest : ::testing::Test {
  HelperWorld world;

  StatusMenuTest() { world.launch(); }

  [[nodiscard]] const MenuItem& item(std::size_t position) const {
    return *world.fields().statusItem->menu()->items().at(position - 1);
  }
  void expectCommand(std::size_t position, const std::string& title, std::optional<char> key) {
    EXPECT_EQ(item(position).title(), title);
    EXPECT_EQ(item(position).keyEquivalent(), key);
    EXPECT_TRUE(item(position).isEnabled());
    EXPECT_FALSE(item(position).isSeparator());
  }
};

// The menu as it is built.

using StatusMenuTable = StatusMenuTest;

TEST_F(StatusMenuTable, Item1IsTheStatusLineDisabledWithoutActionOrKey) {
  EXPECT_EQ(item(1).title(), "Starting ZUNTO Helper\u2026");
  EXPECT_EQ(item(1).keyEquivalent(), std::nullopt);
  EXPECT_FALSE(item(1).isEnabled());
  EXPECT_EQ(&item(1), world.fields().statusMenuItem.get());
  world.journal.clear();
  world.fields().statusMenuItem->setEnabled(true);
  world.choose(1);
  world.clock.runTurns();
  EXPECT_EQ(world.journal, Journal{}) << "it has no action";
}

TEST_F(StatusMenuTable, Item2IsASeparator) { EXPECT_TRUE(item(2).isSeparator()); }

TEST_F(StatusMenuTable, Item3OpensTheVideoImport) {
  expectCommand(3, "Open Video Import", 'o');
  world.choose(3);
  EXPECT_EQ(world.workspace.openedAddresses().size(), 1U);
}

TEST_F(StatusMenuTable, Item4OpensTheDownloader) {
  expectCommand(4, "Open Downloader", 'd');
  HelperWorld withWindow(WindowUse::real);
  withWindow.launch();
  withWindow.choose(4);
  EXPECT_EQ(withWindow.window().showRequests(), 2U);
}

TEST_F(StatusMenuTable, Item5TogglesTheHelper) {
  expectCommand(5, "Stop Helper", std::nullopt);
  EXPECT_EQ(&item(5), world.fields().toggleMenuItem.get());
  world.startChild();
  world.choose(5);
  EXPECT_EQ(world.child().signals().size(), 1U);
}

TEST_F(StatusMenuTable, Item6ShowsTheLocalLog) {
  expectCommand(6, "Show Local Log", 'l');
  world.choose(6);
  EXPECT_EQ(world.workspace.revealedLocations().size(), 1U);
}

TEST_F(StatusMenuTable, Item7IsASeparator) { EXPECT_TRUE(item(7).isSeparator()); }

TEST_F(StatusMenuTable, Item8Quits) {
  expectCommand(8, "Quit ZUNTO Helper", 'q');
  world.choose(8);
  EXPECT_EQ(world.application.terminations(), 1);
}

TEST_F(StatusMenuTest, HoldsTheseEightItemsInOneStatusItem) {
  ASSERT_EQ(world.statusBar.items().size(), 1U);
  EXPECT_EQ(world.statusBar.items().at(0).lock(), world.fields().statusItem);
  EXPECT_EQ(world.fields().statusItem->menu()->items().size(), 8U);
  EXPECT_EQ(world.fields().statusItem->buttonTitle(), "Z/UNTO");
}

TEST_F(StatusMenuTest, IsNeverRebuilt) {
  const auto menu = world.fields().statusItem->menu();
  const std::vector<std::shared_ptr<MenuItem>> items = menu->items();
  world.startChild();
  world.delegate->stopProcessor();
  world.clock.advance(20s);
  EXPECT_EQ(world.fields().statusItem->menu(), menu);
  EXPECT_EQ(menu->items(), items);
  EXPECT_EQ(world.statusBar.items().size(), 1U);
}

TEST_F(StatusMenuTest, OnlyItems1And5EverChange) {
  world.startChild();
  world.health.nobodyListens();
  world.clock.advance(5s);
  for (const std::size_t position : {3U, 4U, 6U, 8U}) EXPECT_TRUE(item(position).isEnabled());
  EXPECT_EQ(item(3).title(), "Open Video Import");
  EXPECT_EQ(item(4).title(), "Open Downloader");
  EXPECT_EQ(item(6).title(), "Show Local Log");
  EXPECT_EQ(item(8).title(), "Quit ZUNTO Helper");
}

TEST(StatusMenuWithoutAButton, IsBuiltAllTheSame) {
  HelperWorld world;
  world.statusBar.button = StatusItem::Button::absent;
  world.launch();
  EXPECT_FALSE(world.fields().statusItem->hasButton());
  EXPECT_EQ(world.fields().statusItem->menu()->items().size(), 8U);
}

// The commands.

struct CommandTable : ::testing::Test {
  HelperWorld world{WindowUse::real};

  CommandTable() {
    world.health.answerHealthy();
    world.launch();
    world.clock.runTurns();
    world.journal.clear();
  }
};

TEST_F(CommandTable, OpenVideoImportOpensThePageAndNeitherChecksNorStartsTheProcessor) {
  world.choose(openVideoImport);
  world.clock.runTurns();
  EXPECT_EQ(world.journal, Journal{"open " + fixedAddresses().videoImportPageURL.absoluteString()});
}

TEST_F(CommandTable, OpenDownloaderPresentsTheWindowWithoutALinkAndMayStartTheProcessor) {
  world.health.nobodyListens();
  world.form().urlField.setText("held");
  world.window().userClosed();
  const auto centringsBefore = world.window().centerRequests();
  world.choose(openDownloader);
  EXPECT_EQ(world.form().urlField.text(), "held");
  EXPECT_TRUE(world.window().isVisible());
  EXPECT_EQ(world.window().centerRequests(), centringsBefore + 1);
  EXPECT_EQ(world.journal, Journal{"activate"});
  EXPECT_EQ(world.launches(), 0U);
  world.clock.runTurns();
  EXPECT_EQ(world.launches(), 1U);
}

TEST_F(CommandTable, ToggleHelperStopsARunningChildAtOnceAndOtherwiseStartsATaskThatStartsOne) {
  world.health.answerHealthyAfter(1);
  world.choose(toggleHelper);
  EXPECT_FALSE(world.fields().isStarting) << "the foreign state disables the item";
  world.fields().toggleMenuItem->setEnabled(true);
  world.choose(toggleHelper);
  EXPECT_EQ(world.journal, Journal{}) << "the action itself returns at once";
  world.clock.advance(150ms);
  ASSERT_TRUE(world.fields().processor);
  EXPECT_TRUE(world.workspace.openedAddresses().empty());
  world.choose(toggleHelper);
  EXPECT_FALSE(world.fields().processor);
  EXPECT_EQ(world.child().signals(), (std::vector<testing::FakeChild::Signal>{{SIGINT, 150ms}}));
}

TEST_F(CommandTable, ShowLogSelectsTheLogInTheFileViewerAndDoesNothingWhenItCannotBePrepared) {
  world.choose(showLog);
  EXPECT_EQ(world.workspace.revealedLocations(), std::vector<std::filesystem::path>{testing::logFile});
  world.files.removeTree(testing::logFolder);
  world.files.refuse("/home/user", "Read-only file system");
  world.choose(showLog);
  world.clock.runTurns();
  EXPECT_EQ(world.workspace.revealedLocations().size(), 1U);
  EXPECT_TRUE(world.alerts.shown().empty());
  EXPECT_EQ(world.beeper.beeps(), 0);
}

TEST_F(CommandTable, QuitStopsTheProcessorAndThenAsksTheApplicationToTerminate) {
  world.startChild();
  world.journal.clear();
  world.choose(quit);
  EXPECT_EQ(world.journal, (Journal{"interrupt", "terminate after 2000 ms", "terminate"}));
}

TEST_F(StatusMenuTest, OpenDownloaderWithoutAWindowDoesNothing) {
  world.journal.clear();
  world.choose(openDownloader);
  world.clock.runTurns();
  EXPECT_EQ(world.journal, Journal{});
}

TEST_F(StatusMenuTest, StartingWhileAProcessorOfAnotherProgramAnswersOnlyRefreshesTheDisplay) {
  world.health.answerHealthy();
  world.choose(toggleHelper);
  world.clock.runTurns();
  EXPECT_EQ(world.launches(), 0U);
  EXPECT_EQ(world.display(), testing::foreignDisplay);
}

TEST_F(StatusMenuTest, ToggleHelperForAHeldChildThatHasEndedTakesTheStartPath) {
  world.startChild();
  world.child().end();
  world.fields().statusMenuItem->setTitle("as it was");
  const std::size_t probesBefore = world.health.probes();
  world.choose(toggleHelper);
  EXPECT_TRUE(world.fields().processor);
  EXPECT_EQ(world.display().statusLine, "as it was");
  world.clock.runTurns();
  EXPECT_EQ(world.health.probes(), probesBefore + 1);
}

TEST_F(StatusMenuTest, AStartFromTheMenuKeepsTheDelegateUntilItHasEnded) {
  const std::weak_ptr<HelperDelegate> weak = world.delegate;
  world.choose(toggleHelper);
  world.delegate.reset();
  ASSERT_FALSE(weak.expired()) << "before its first turn";
  world.clock.runTurns();
  ASSERT_FALSE(weak.expired()) << "in its wait";
  world.health.answerHealthy();
  world.clock.advance(150ms);
  EXPECT_TRUE(weak.expired());
}

TEST_F(StatusMenuTest, AStartFromTheMenuThatFailsLeavesTheDisplayToTheNextTick) {
  world.files.removeTree(testing::scriptFile);
  world.scribbleOnDisplay();
  world.fields().toggleMenuItem->setEnabled(true);
  const testing::Display before = world.display();
  world.choose(toggleHelper);
  world.clock.runTurns();
  ASSERT_EQ(world.alerts.openCount(), 1U);
  world.alerts.press(testing::okButton);
  world.clock.runTurns();
  ASSERT_FALSE(world.fields().isStarting);
  EXPECT_EQ(world.display(), before);
}

// Edge cases.

using StatusMenuEdgeCases = StatusMenuTest;

TEST_F(StatusMenuEdgeCases, StopHelperFromTheMenusCreationWithoutAnOwnChildTakesTheStartPath) {
  ASSERT_EQ(item(toggleHelper).title(), "Stop Helper");
  world.choose(toggleHelper);
  world.clock.runTurns();
  EXPECT_EQ(world.launches(), 1U);
  EXPECT_TRUE(world.fields().isStarting);
}

TEST_F(StatusMenuEdgeCases, DuringAStartSequenceBeforeItsChildIsLaunchedItem5ProbesOnceAndLaunchesNothing) {
  world.files.removeTree(testing::scriptFile);
  world.start();
  world.clock.runTurns();
  ASSERT_TRUE(world.fields().isStarting);
  ASSERT_FALSE(world.fields().processor);
  const std::size_t probesBefore = world.health.probes();
  world.files.addFile(testing::scriptFile);

  world.choose(toggleHelper);
  world.clock.runTurns();

  EXPECT_EQ(world.health.probes(), probesBefore + 1);
  EXPECT_EQ(world.launches(), 0U);
  EXPECT_EQ(world.alerts.shown().size(), 1U);
}

TEST_F(StatusMenuEdgeCases, StopHelperDuringTheWaitInterruptsTheChildAndTheSequenceGivesUpAfterItsAttempts) {
  world.start();
  world.clock.advance(300ms);
  ASSERT_EQ(item(toggleHelper).title(), "Stop Helper");
  world.choose(toggleHelper);
  EXPECT_EQ(world.child().signals().size(), 1U);
  EXPECT_FALSE(world.fields().processor);
  world.clock.advance(9s - 300ms - 1ns);
  EXPECT_EQ(world.health.probes(), 60U);
  EXPECT_TRUE(world.alerts.shown().empty());
  world.clock.advance(1ns);
  EXPECT_EQ(world.health.probes(), 61U);
  ASSERT_EQ(world.alerts.shown().size(), 1U);
  EXPECT_EQ(world.alerts.shown().at(0).messageText, "ZUNTO Helper could not start");
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
  EXPECT_EQ(world.launches(), 1U);
}

TEST_F(StatusMenuEdgeCases, ForAHungOwnChildItem5ReadsStartHelperStopsThatChildAndThenStartsANewOne) {
  world.startChild();
  world.health.nobodyListens();
  world.clock.advance(5s);
  ASSERT_EQ(item(toggleHelper).title(), "Start Helper");

  world.choose(toggleHelper);
  world.clock.runTurns();
  EXPECT_EQ(world.child(0).signals().size(), 1U);
  EXPECT_EQ(world.launches(), 1U);

  world.choose(toggleHelper);
  world.clock.runTurns();
  EXPECT_EQ(world.launches(), 2U);
  EXPECT_TRUE(world.child(1).isRunning());
}

TEST_F(StatusMenuEdgeCases, OpenVideoImportOpensThePageAlsoWhileTheProcessorIsStopped) {
  world.clock.advance(5s);
  ASSERT_EQ(world.display(), testing::stoppedDisplay);
  world.choose(openVideoImport);
  world.clock.runTurns();
  EXPECT_EQ(world.workspace.openedAddresses(),
            std::vector<std::string>{fixedAddresses().videoImportPageURL.absoluteString()});
  EXPECT_EQ(world.launches(), 0U);
}

TEST_F(StatusMenuEdgeCases, OpenDownloaderWhileTheWindowIsOpenBringsItForwardAndRunsTheReadinessStepAgain) {
  HelperWorld withWindow(WindowUse::real);
  withWindow.health.answerHealthy();
  withWindow.launch();
  withWindow.clock.runTurns();
  ASSERT_TRUE(withWindow.window().isVisible());
  const std::size_t probesBefore = withWindow.health.probes();
  const std::size_t requestsBefore = withWindow.http.requests("GET", "/health").size();
  withWindow.choose(openDownloader);
  withWindow.clock.runTurns();
  EXPECT_EQ(withWindow.window().showRequests(), 2U);
  EXPECT_EQ(withWindow.application.activations(), 2);
  EXPECT_EQ(withWindow.health.probes(), probesBefore + 1);
  EXPECT_EQ(withWindow.http.requests("GET", "/health").size(), requestsBefore + 1);
}

}  // namespace
}  // namespace zunto
