#include "app/helper_delegate.h"

#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>

#include "helper_world.h"

namespace zunto {
namespace {

using namespace std::chrono_literals;
using testing::Display;
using testing::HelperWorld;
using testing::Journal;
using testing::okButton;
using testing::WindowUse;

// The fields before anything is built.

struct HelperDelegateFieldsTable : ::testing::Test {
  HelperWorld world;
  const SupervisorFields& fields = world.fields();
};

TEST_F(HelperDelegateFieldsTable, ProcessorIsNoneAtFirst) { EXPECT_FALSE(fields.processor); }
TEST_F(HelperDelegateFieldsTable, StatusItemIsNoneAtFirst) { EXPECT_FALSE(fields.statusItem); }
TEST_F(HelperDelegateFieldsTable, StatusMenuItemIsNoneAtFirst) { EXPECT_FALSE(fields.statusMenuItem); }
TEST_F(HelperDelegateFieldsTable, ToggleMenuItemIsNoneAtFirst) { EXPECT_FALSE(fields.toggleMenuItem); }
TEST_F(HelperDelegateFieldsTable, LogHandleIsNoneAtFirst) { EXPECT_FALSE(fields.logHandle); }
TEST_F(HelperDelegateFieldsTable, HealthTimerIsNoneAtFirst) { EXPECT_FALSE(fields.healthTimer); }
TEST_F(HelperDelegateFieldsTable, DownloaderWindowIsNoneAtFirst) { EXPECT_FALSE(fields.downloaderWindow); }
TEST_F(HelperDelegateFieldsTable, IsStartingIsFalseAtFirst) { EXPECT_FALSE(fields.isStarting); }

// What the caller of ensureHelper sees.

struct EnsureHelperTable : ::testing::Test {
  HelperWorld world;
  EnsureHelperTable() { world.launch(); }
  auto ensureHelper() { return world.answerOf(world.ensureHelper()()); }
};

TEST_F(EnsureHelperTable, AHealthyProcessorAnswersTrueAfterOneProbeAndRefreshesTheDisplay) {
  world.health.answerHealthy();
  world.scribbleOnDisplay();
  const auto answer = ensureHelper();
  world.clock.runTurns();
  EXPECT_EQ(*answer, true);
  EXPECT_EQ(world.health.probes(), 1U);
  EXPECT_EQ(world.display(), testing::foreignDisplay);
}

TEST_F(EnsureHelperTable, DuringAStartSequenceItAnswersOneProbeAtOnceWithoutWaitingForTheStart) {
  world.start();
  world.clock.runTurns();
  ASSERT_TRUE(world.fields().isStarting);
  const std::size_t probesBefore = world.health.probes();
  world.scribbleOnDisplay();

  const auto answer = ensureHelper();
  world.clock.runTurns();

  EXPECT_EQ(*answer, false);
  EXPECT_EQ(world.health.probes(), probesBefore + 1);
  EXPECT_TRUE(world.fields().isStarting);
  EXPECT_EQ(world.launches(), 1U);
  EXPECT_EQ(world.display(), testing::scribbledDisplay);
}

TEST_F(EnsureHelperTable, WithNothingThereItLaunchesAChildAndProbesAfterEach150MsUntilItIsHealthy) {
  world.health.answerHealthyAfter(3);
  const auto answer = ensureHelper();
  world.clock.runTurns();
  EXPECT_EQ(world.launches(), 1U);
  world.clock.advance(450ms - 1ns);
  EXPECT_EQ(*answer, std::nullopt);
  world.clock.advance(1ns);
  EXPECT_EQ(*answer, true);
  EXPECT_EQ(world.health.probes(), 4U);
}

TEST_F(EnsureHelperTable, AChildThatCannotBeLaunchedAnswersFalseAtOnceAfterTheAlert) {
  world.files.removeTree(testing::scriptFile);
  const auto answer = ensureHelper();
  world.clock.runTurns();
  ASSERT_EQ(world.alerts.openCount(), 1U);
  EXPECT_EQ(*answer, std::nullopt);
  world.alerts.press(okButton);
  world.clock.runTurns();
  EXPECT_EQ(*answer, false);
  EXPECT_EQ(world.clock.now(), 0ns);
}

TEST_F(EnsureHelperTable, AHungChildThatIsStillHeldAnswersFalseAfterOneProbeWithoutAlertOrLaunch) {
  world.startChild();
  world.health.nobodyListens();
  const std::size_t probesBefore = world.health.probes();

  const auto answer = ensureHelper();
  world.clock.runTurns();

  EXPECT_EQ(*answer, false);
  EXPECT_EQ(world.health.probes(), probesBefore + 1);
  EXPECT_TRUE(world.alerts.shown().empty());
  EXPECT_EQ(world.launches(), 1U);
}

// Launch and teardown.

TEST(HelperDelegateLaunch, BuildsMenuWindowAndLinkHandlerPresentsAndStartsTheTimerInThisOrder) {
  HelperWorld world(WindowUse::real);
  world.launch();
  EXPECT_EQ(world.journal, (Journal{"make status item", "attach menu of 8 items", "make window",
                                    "register link handler", "activate", "start timer 5000 ms"}));
}

TEST(HelperDelegateLaunch, ItsMenuStandsBeforeTheWindowIsMade) {
  HelperWorld world;
  bool wasBuilt = false;
  world.whileMakingWindow = [&] {
    wasBuilt = world.fields().statusItem && world.fields().statusMenuItem && world.fields().toggleMenuItem &&
               world.display() == testing::startingDisplay;
  };
  world.launch();
  EXPECT_TRUE(wasBuilt);
}

TEST(HelperDelegateLaunch, PresentsTheWindowWithoutALink) {
  HelperWorld world(WindowUse::real);
  world.launch();
  EXPECT_TRUE(world.window().isVisible());
  EXPECT_EQ(world.window().showRequests(), 1U);
  EXPECT_EQ(world.window().centerRequests(), 1U);
  EXPECT_EQ(world.form().urlField.text(), "");
}

TEST(HelperDelegateLaunch, TheReadinessStepBeginsOnlyAfterTheLaunchSequenceHasReturned) {
  HelperWorld world(WindowUse::real);
  world.launch();
  EXPECT_EQ(world.health.probes(), 0U);
  EXPECT_FALSE(world.fields().isStarting);
  world.clock.runTurns();
  EXPECT_EQ(world.health.probes(), 1U);
  EXPECT_TRUE(world.fields().isStarting);
}

TEST(HelperDelegateLaunch, TheProcessorIsStartedByThePresentedWindowOnDemand) {
  HelperWorld world(WindowUse::real);
  world.health.answerHealthyAfter(2);
  world.launch();
  world.clock.advance(300ms);
  EXPECT_EQ(world.launches(), 1U);
  EXPECT_EQ(world.display(), testing::readyDisplay);
  EXPECT_EQ(world.form().statusLabel.text(), "Ready. Processing and browser access stay on this Mac.");
}

TEST(HelperDelegateLaunch, WithoutAWindowNothingAsksForAProcessor) {
  HelperWorld world;
  world.launch();
  world.clock.advance(30s);
  EXPECT_EQ(world.launches(), 0U);
  EXPECT_FALSE(world.fields().isStarting);
}

TEST(HelperDelegateTeardown, EndsTheTimerRemovesTheLinkHandlerAndStopsTheChildInThisOrder) {
  HelperWorld world;
  world.launchWithRunningChild();
  world.journal.clear();
  world.delegate->applicationWillTerminate();
  EXPECT_EQ(world.journal,
            (Journal{"end timer 5000 ms", "remove link handler", "interrupt", "terminate after 2000 ms"}));
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
}

TEST(HelperDelegateTeardown, KeepsTheInvalidatedTimerInItsField) {
  HelperWorld world;
  world.launch();
  world.delegate->applicationWillTerminate();
  ASSERT_TRUE(world.fields().healthTimer);
  EXPECT_FALSE(world.fields().healthTimer->isValid());
  world.clock.advance(20s);
  EXPECT_EQ(world.health.probes(), 0U);
}

TEST(HelperDelegateTeardown, WithoutAChildItLeavesTheDisplayAlone) {
  HelperWorld world;
  world.launch();
  world.delegate->applicationWillTerminate();
  EXPECT_EQ(world.display(), testing::startingDisplay);
}

TEST(HelperDelegateTeardown, BeforeTheLaunchItHasNoTimerToEnd) {
  HelperWorld world;
  world.delegate->applicationWillTerminate();
  EXPECT_EQ(world.journal, Journal{"remove link handler"});
}

TEST(HelperDelegateTeardown, ALinkThatArrivesAfterwardsIsNotHandled) {
  HelperWorld world(WindowUse::real);
  world.launch();
  world.clock.runTurns();
  world.delegate->applicationWillTerminate();
  world.urlEvents.deliverLink("zunto-helper:?url=https%3A%2F%2Fexample.com%2F1");
  world.clock.runTurns();
  EXPECT_EQ(world.form().urlField.text(), "");
  EXPECT_EQ(world.window().showRequests(), 1U);
}

TEST(HelperDelegateQuit, StopsTheChildFirstAndThenAsksTheApplicationToTerminate) {
  HelperWorld world;
  world.launchWithRunningChild();
  world.journal.clear();
  world.delegate->quit();
  EXPECT_EQ(world.journal, (Journal{"interrupt", "terminate after 2000 ms", "terminate"}));
  EXPECT_FALSE(world.fields().processor);
}

TEST(HelperDelegateQuit, TheTerminationThatItAsksForFindsNoChildAndStopsNothingTwice) {
  HelperWorld world;
  world.launchWithRunningChild();
  world.child().ignore(SIGINT);
  world.application.onTerminate([&] { world.delegate->applicationWillTerminate(); });
  world.delegate->quit();
  EXPECT_EQ(world.child().signals().size(), 1U);
  EXPECT_EQ(world.application.terminations(), 1);
}

TEST(HelperDelegateQuit, WithoutAChildItTerminatesAllTheSame) {
  HelperWorld world;
  world.launch();
  world.delegate->quit();
  EXPECT_EQ(world.application.terminations(), 1);
  EXPECT_EQ(world.display(), testing::startingDisplay);
}

// Edge cases.

TEST(HelperDelegateEdgeCases, AProcessorOfAnotherOriginAtLaunchIsUsedAndShownAsManagedByAnotherProcess) {
  HelperWorld world(WindowUse::real);
  world.health.answerHealthy();
  world.launch();
  const auto answer = world.answerOf(world.ensureHelper()());
  world.clock.runTurns();
  EXPECT_EQ(world.launches(), 0U);
  EXPECT_EQ(*answer, true);
  EXPECT_EQ(world.display(), testing::foreignDisplay);
  EXPECT_EQ(world.form().statusLabel.text(), "Ready. Processing and browser access stay on this Mac.");
}

TEST(HelperDelegateEdgeCases,
     OpenDownloaderDuringTheLaunchsStartReportsAFailureAlthoughThatStartSucceedsLater) {
  HelperWorld world(WindowUse::real);
  world.health.answerHealthyAfter(4);
  world.launch();
  world.clock.advance(150ms);
  ASSERT_TRUE(world.fields().isStarting);
  const std::size_t probesBefore = world.health.probes();

  world.choose(4);
  world.clock.runTurns();

  EXPECT_EQ(world.health.probes(), probesBefore + 1);
  EXPECT_EQ(world.form().statusLabel.text(),
            "ZUNTO Helper could not start. Use the menu bar log for details.");
  EXPECT_TRUE(world.fields().isStarting);
  world.clock.advance(300ms);
  EXPECT_EQ(world.display(), testing::readyDisplay);
  EXPECT_EQ(world.form().statusLabel.text(), "Ready. Processing and browser access stay on this Mac.");
}

TEST(HelperDelegateEdgeCases, StartHelperDuringAStartSequenceProbesOnceAndLaunchesNoSecondChild) {
  HelperWorld world;
  world.launch();
  world.start();
  world.clock.runTurns();
  world.child().end();
  world.clock.runTurns();
  ASSERT_EQ(world.display(), testing::stoppedDisplay);
  const std::size_t probesBefore = world.health.probes();
  world.choose(5);
  world.clock.runTurns();
  EXPECT_EQ(world.health.probes(), probesBefore + 1);
  EXPECT_EQ(world.launches(), 1U);
}

TEST(HelperDelegateEdgeCases, AHungOwnChildIsNotLaunchedTwiceAndTheNextTickShowsStopped) {
  HelperWorld world;
  world.launchWithRunningChild();
  world.health.nobodyListens();
  const auto answer = world.answerOf(world.ensureHelper()());
  world.clock.runTurns();
  EXPECT_EQ(*answer, false);
  EXPECT_TRUE(world.alerts.shown().empty());
  EXPECT_EQ(world.launches(), 1U);
  EXPECT_EQ(world.display(), testing::readyDisplay);
  world.clock.advance(5s);
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
  EXPECT_TRUE(world.child().isRunning());
}

TEST(HelperDelegateEdgeCases, QuitDuringAStartSequenceInterruptsTheChildAndTerminatesWithoutWaiting) {
  HelperWorld world;
  world.launch();
  const auto answer = world.start();
  world.clock.advance(150ms);
  ASSERT_TRUE(world.fields().isStarting);
  world.child().ignore(SIGINT);

  world.choose(8);

  EXPECT_EQ(world.child().signals(), (std::vector<testing::FakeChild::Signal>{{SIGINT, 150ms}}));
  EXPECT_EQ(world.application.terminations(), 1);
  EXPECT_TRUE(world.child().isRunning());
  EXPECT_EQ(*answer, std::nullopt);
}

TEST(HelperDelegateEdgeCases, ClosingTheImportWindowLeavesApplicationStatusItemAndChildRunning) {
  HelperWorld world(WindowUse::real);
  world.health.answerHealthyAfter(1);
  world.launch();
  world.clock.advance(150ms);
  ASSERT_TRUE(world.fields().processor);
  world.windowSystem.windows().at(0)->userClosed();
  world.clock.advance(10s);
  EXPECT_FALSE(world.window().isVisible());
  EXPECT_EQ(world.application.terminations(), 0);
  EXPECT_TRUE(world.child().isRunning());
  EXPECT_TRUE(world.child().signals().empty());
  EXPECT_EQ(world.display(), testing::readyDisplay);
}

TEST(HelperDelegateEdgeCases, NoTickComesBefore5SecondsAndUntilThenTheStatusLineReadsStarting) {
  HelperWorld world;
  world.launch();
  world.clock.advance(5s - 1ns);
  EXPECT_EQ(world.health.probes(), 0U);
  EXPECT_EQ(world.display(), testing::startingDisplay);
  world.clock.advance(1ns);
  EXPECT_EQ(world.health.probes(), 1U);
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
}

// Functions that outlive the delegate.

TEST(HelperDelegateGone, EnsureHelperAnswersFalseWithoutAProbe) {
  HelperWorld world;
  world.health.answerHealthy();
  world.launch();
  const EnsureHelper ensureHelper = world.ensureHelper();
  world.delegate.reset();
  const auto answer = world.answerOf(ensureHelper());
  world.clock.runTurns();
  EXPECT_EQ(*answer, false);
  EXPECT_EQ(world.health.probes(), 0U);
}

TEST(HelperDelegateGone, AnEnsureHelperThatWasCalledButHasNotBegunAnswersFalse) {
  HelperWorld world;
  world.health.answerHealthy();
  world.launch();
  const auto answer = world.answerOf(world.ensureHelper()());
  world.delegate.reset();
  world.clock.runTurns();
  EXPECT_EQ(*answer, false);
}

TEST(HelperDelegateGone, AnEnsureHelperThatHasBegunKeepsTheDelegateUntilItAnswers) {
  HelperWorld world;
  world.launch();
  const auto answer = world.answerOf(world.ensureHelper()());
  world.clock.runTurns();
  const std::weak_ptr<HelperDelegate> weak = world.delegate;
  world.delegate.reset();
  EXPECT_FALSE(weak.expired());
  world.health.answerHealthy();
  world.clock.advance(150ms);
  EXPECT_EQ(*answer, true);
  EXPECT_TRUE(weak.expired());
}

TEST(HelperDelegateGone, TheHealthTimerEndsWithIt) {
  HelperWorld world;
  world.launch();
  world.delegate.reset();
  world.clock.advance(20s);
  EXPECT_EQ(world.health.probes(), 0U);
  EXPECT_EQ(world.clock.pendingTimers(), 0U);
}

TEST(HelperDelegateGone, ATickWhoseTimerHasFiredButWhichHasNotBegunDoesNothing) {
  HelperWorld world;
  world.launch();
  world.loop.afterTimer = [&] { world.delegate.reset(); };
  world.clock.advance(5s);
  EXPECT_FALSE(world.delegate);
  EXPECT_EQ(world.health.probes(), 0U);
}

TEST(HelperDelegateGone, TheEndNoticeOfAChildDoesNothing) {
  HelperWorld world;
  world.launchWithRunningChild();
  const auto item = world.fields().statusMenuItem;
  const auto status = world.fields().statusItem;
  world.delegate.reset();
  world.child().end();
  world.clock.runTurns();
  EXPECT_EQ(item->title(), testing::readyDisplay.statusLine);
}

TEST(HelperDelegateGone, ALinkIsIgnored) {
  HelperWorld world(WindowUse::real);
  world.health.answerHealthy();
  world.launch();
  world.clock.runTurns();
  const auto window = world.fields().downloaderWindow;
  world.delegate.reset();
  ASSERT_TRUE(world.urlEvents.hasHandler());
  world.urlEvents.deliverLink("zunto-helper:?url=https%3A%2F%2Fexample.com%2F1");
  world.clock.runTurns();
  EXPECT_EQ(window->form().urlField.text(), "");
  EXPECT_EQ(window->window().showRequests(), 1U);
}

TEST(HelperDelegateGone, TheMenuActionsDoNothing) {
  HelperWorld world;
  world.launchWithRunningChild();
  const auto status = world.fields().statusItem;
  world.delegate.reset();
  world.journal.clear();
  for (const std::size_t position : {3U, 4U, 5U, 6U, 8U}) world.choose(position);
  world.clock.runTurns();
  EXPECT_EQ(world.journal, Journal{});
  EXPECT_TRUE(world.child().isRunning());
}

TEST(HelperDelegateGone, DestroyingTheExecutorsTasksFreesTheDelegateThatTheyKeep) {
  std::weak_ptr<HelperDelegate> weak;
  {
    HelperWorld world(WindowUse::real);
    world.launch();
    world.clock.advance(150ms);
    ASSERT_TRUE(world.fields().isStarting);
    weak = world.delegate;
  }
  EXPECT_TRUE(weak.expired());
}

// The main thread.

struct EntryPoint {
  const char* name;
  std::function<void(HelperDelegate&)> call;

  friend void PrintTo(const EntryPoint& row, std::ostream* out) { *out << row.name; }
};

class HelperDelegateDeathTest : public ::testing::TestWithParam<EntryPoint> {};

TEST_P(HelperDelegateDeathTest, AnEntryPointCalledOnAnotherThreadEndsTheProgram) {
  HelperWorld world;
  EXPECT_DEATH(std::thread([&] { GetParam().call(*world.delegate); }).join(),
               std::string("fatal error: ") + GetParam().name + " was called off the main thread");
}

INSTANTIATE_TEST_SUITE_P(
    EntryPoints, HelperDelegateDeathTest,
    ::testing::Values(
        EntryPoint{"applicationDidFinishLaunching",
                   [](HelperDelegate& delegate) { delegate.applicationDidFinishLaunching(); }},
        EntryPoint{"handleURLWithEvent", [](HelperDelegate& delegate) { delegate.handleURLWithEvent({}); }},
        EntryPoint{"openVideoImport", [](HelperDelegate& delegate) { delegate.openVideoImport(); }},
        EntryPoint{"openDownloader", [](HelperDelegate& delegate) { delegate.openDownloader(); }},
        EntryPoint{"toggleHelper", [](HelperDelegate& delegate) { delegate.toggleHelper(); }},
        EntryPoint{"showLog", [](HelperDelegate& delegate) { delegate.showLog(); }},
        EntryPoint{"quit", [](HelperDelegate& delegate) { delegate.quit(); }},
        EntryPoint{"applicationWillTerminate",
                   [](HelperDelegate& delegate) { delegate.applicationWillTerminate(); }}),
    [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace zunto
