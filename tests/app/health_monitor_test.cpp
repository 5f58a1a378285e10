#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "app/helper_status.h"
#include "helper_world.h"

namespace zunto {
namespace {

using namespace std::chrono_literals;
using testing::Display;
using testing::HealthAnswer;
using testing::HelperWorld;
using testing::Journal;

struct HealthMonitorTest : ::testing::Test {
  HelperWorld world;

  HealthMonitorTest() { world.launch(); }

  bool probe() {
    const auto answer = world.answerOf(world.delegate->probeHealth());
    EXPECT_TRUE(world.clock.runOneTurn());
    EXPECT_TRUE(answer->has_value()) << "a probe must not suspend";
    return answer->value_or(false);
  }
  bool probeOf(std::string body) {
    world.health.answer({.body = std::move(body)});
    return probe();
  }
  void tick() {
    world.executor.spawn(world.delegate->refreshHealth());
    world.clock.runTurns();
  }
  /// A probe that answers healthy, during which the own child ends: it is still held but runs no more.
  void answerHealthyWhileTheChildEnds() {
    world.health.answerBy([this] {
      world.child().end();
      return std::optional(HealthAnswer{});
    });
  }
};

// The probe.

TEST_F(HealthMonitorTest, TheProbeRunsCurlWithItsFixedArguments) {
  (void)probe();
  ASSERT_EQ(world.commands.runs().size(), 1U);
  EXPECT_EQ(world.commands.runs().at(0).executable, "/usr/bin/curl");
  EXPECT_EQ(
      world.commands.runs().at(0).arguments,
      (std::vector<std::string>{"--fail", "--silent", "--max-time", "1", "http://127.0.0.1:43127/health"}));
}

TEST_F(HealthMonitorTest, AStatusOfOkIsHealthy) { EXPECT_TRUE(probeOf(R"({"status":"ok"})")); }

TEST_F(HealthMonitorTest, OtherMembersAreIgnored) {
  EXPECT_TRUE(probeOf(R"( {"version":3,"status":"ok","nested":{"status":"no"}} )"));
}

TEST_F(HealthMonitorTest, TheStatusIsComparedWithoutTrimming) {
  EXPECT_FALSE(probeOf(R"({"status":"ok "})"));
  EXPECT_FALSE(probeOf(R"({"status":""})"));
}

TEST_F(HealthMonitorTest, AnAnswerWithoutAStatusIsNotHealthy) { EXPECT_FALSE(probeOf(R"({"ok":true})")); }

TEST_F(HealthMonitorTest, AnAnswerThatIsNotJsonIsNotHealthy) {
  EXPECT_FALSE(probeOf(""));
  EXPECT_FALSE(probeOf("ok"));
  EXPECT_FALSE(probeOf(R"({"status":"ok")"));
  EXPECT_FALSE(probeOf(R"({"status":"ok"} trailing)"));
  EXPECT_FALSE(probeOf(R"("ok")"));
}

TEST_F(HealthMonitorTest, AStatusOfNullIsNotHealthy) { EXPECT_FALSE(probeOf(R"({"status":null})")); }

TEST_F(HealthMonitorTest, NobodyListeningIsNotHealthy) { EXPECT_FALSE(probe()); }

TEST_F(HealthMonitorTest, AHealthyBodyWithAnotherExitStatusIsNotHealthy) {
  world.commands.answer(18, R"({"status":"ok"})");
  EXPECT_FALSE(probe());
}

TEST_F(HealthMonitorTest, AWholeHealthyBodyOfAnAnswerThatDoesNotEndIsNotHealthy) {
  world.health.answer({.isEndless = true});
  EXPECT_FALSE(probe());
}

TEST_F(HealthMonitorTest, ACurlThatASignalEndedIsNotHealthy) {
  world.commands.answer(128 + SIGKILL, R"({"status":"ok"})");
  EXPECT_FALSE(probe());
}

TEST_F(HealthMonitorTest, AnAnswerWithinTheSecondIsHealthy) {
  world.health.answer({.delay = 1s});
  EXPECT_TRUE(probe());
}

TEST_F(HealthMonitorTest, AMegabyteOfNestingIsNotHealthyAndDoesNoHarm) {
  EXPECT_FALSE(probeOf(std::string(1U << 20U, '[')));
}

// A tick.

TEST_F(HealthMonitorTest, TheTimerTicksEvery5SecondsWithOneProbeEach) {
  world.clock.advance(16s);
  EXPECT_EQ(world.health.probes(), 3U);
}

TEST_F(HealthMonitorTest, ATickIsSkippedAndNotQueuedWhileAStartSequenceRuns) {
  world.start();
  world.clock.advance(4s);
  world.scribbleOnDisplay();
  const std::size_t probesBefore = world.health.probes();
  tick();
  EXPECT_EQ(world.health.probes(), probesBefore);
  EXPECT_EQ(world.display(), testing::scribbledDisplay);
  world.clock.advance(5s);
  ASSERT_EQ(world.alerts.openCount(), 1U);
  world.alerts.press(testing::okButton);
  const std::size_t probesAfterwards = world.health.probes();
  world.clock.runTurns();
  EXPECT_EQ(world.health.probes(), probesAfterwards) << "a skipped tick must not be made up for";
}

TEST_F(HealthMonitorTest, TicksGoOnAfterAStartSequence) {
  world.start();
  world.clock.advance(9s);
  world.alerts.press(testing::okButton);
  world.clock.runTurns();
  const std::size_t probesBefore = world.health.probes();
  world.clock.advance(1s);
  EXPECT_EQ(world.health.probes(), probesBefore + 1);
}

TEST_F(HealthMonitorTest, WhileAStartSequenceRunsEverythingButTheTicksGoesOn) {
  world.start();
  world.clock.advance(150ms);
  ASSERT_TRUE(world.fields().isStarting);
  world.choose(3);
  EXPECT_EQ(world.workspace.openedAddresses().size(), 1U);
  world.choose(6);
  EXPECT_EQ(world.workspace.revealedLocations().size(), 1U);
  world.child().end();
  world.clock.runTurns();
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
}

TEST_F(HealthMonitorTest, ATickStartsStopsAndAlertsNothing) {
  world.launchWithRunningChild();
  world.health.nobodyListens();
  world.journal.clear();
  tick();
  EXPECT_EQ(world.journal, Journal{"probe"});
  EXPECT_TRUE(world.child().isRunning());
  EXPECT_TRUE(world.fields().processor);
}

TEST_F(HealthMonitorTest, AFailedTickLeavesAChildThatHasEndedToItsEndNotice) {
  world.startChild();
  world.health.answerBy([this] {
    world.child().end();
    return std::nullopt;
  });
  world.executor.spawn(world.delegate->refreshHealth());
  EXPECT_TRUE(world.clock.runOneTurn());
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
  EXPECT_TRUE(world.fields().processor);
  EXPECT_TRUE(world.fields().logHandle);
}

TEST_F(HealthMonitorTest, OneFailedTickShowsStoppedAndTheNextGoodOneReadyAgain) {
  world.startChild();
  world.health.nobodyListens();
  tick();
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
  world.health.answerHealthy();
  tick();
  EXPECT_EQ(world.display(), testing::readyDisplay);
}

TEST_F(HealthMonitorTest, WhetherTheChildRunsIsReadAfterTheProbeHasReturned) {
  world.startChild();
  answerHealthyWhileTheChildEnds();
  world.executor.spawn(world.delegate->refreshHealth());
  EXPECT_TRUE(world.clock.runOneTurn());
  EXPECT_EQ(world.display(), testing::foreignDisplay);
}

// The display.

TEST_F(HealthMonitorTest, ItsTextsHoldExactlyTheCharactersU2026U00B7AndU25CF) {
  EXPECT_EQ(world.display().statusLine, "Starting ZUNTO Helper\xE2\x80\xA6");
  world.startChild();
  EXPECT_EQ(world.display().statusLine, "ZUNTO Helper Ready \xC2\xB7 127.0.0.1:43127");
  EXPECT_EQ(world.display().barTitle, "Z/UNTO \xE2\x97\x8F");
}

TEST(HealthMonitorWithoutAMenu, ATickBeforeTheMenuIsBuiltShowsNothingAndDoesNoHarm) {
  HelperWorld world;
  world.health.answerHealthy();
  world.executor.spawn(world.delegate->refreshHealth());
  world.clock.runTurns();
  EXPECT_EQ(world.health.probes(), 1U);
  EXPECT_FALSE(world.fields().statusItem);
}

TEST(HealthMonitorWithoutAMenu, AStatusItemWithoutAButtonGetsNoTitleButTheMenuIsKeptUp) {
  HelperWorld world;
  world.statusBar.button = StatusItem::Button::absent;
  world.launch();
  world.health.answerHealthy();
  world.clock.advance(5s);
  EXPECT_EQ(world.display().barTitle, "");
  EXPECT_EQ(world.display().statusLine, testing::foreignDisplay.statusLine);
}

TEST(HelperStatusTest, IsOwnedOnlyWhenHealthy) {
  EXPECT_EQ(helperStatus(true, true), HelperStatus::ready);
  EXPECT_EQ(helperStatus(true, false), HelperStatus::foreign);
  EXPECT_EQ(helperStatus(false, false), HelperStatus::stopped);
  EXPECT_EQ(helperStatus(false, true), HelperStatus::stopped);
}

// The displayed states.

using HealthStatusTable = HealthMonitorTest;

TEST_F(HealthStatusTable, StartingWritesTheStatusLineAloneAndTheRestIsWhatTheMenuWasBuiltWith) {
  EXPECT_EQ(world.display(), (Display{"Starting ZUNTO Helper\u2026", "Stop Helper", true, "Z/UNTO"}));
  world.scribbleOnDisplay();
  world.start();
  world.clock.runTurns();
  EXPECT_EQ(world.display(),
            (Display{"Starting ZUNTO Helper\u2026", "scribbled toggle", false, "scribbled bar"}));
}

TEST_F(HealthStatusTable, Ready) {
  world.startChild();
  world.scribbleOnDisplay();
  tick();
  EXPECT_EQ(world.display(),
            (Display{"ZUNTO Helper Ready \u00B7 127.0.0.1:43127", "Stop Helper", true, "Z/UNTO \u25CF"}));
}

TEST_F(HealthStatusTable, Foreign) {
  world.health.answerHealthy();
  world.fields().toggleMenuItem->setEnabled(true);
  tick();
  EXPECT_EQ(world.display(), (Display{"ZUNTO Helper Ready \u00B7 127.0.0.1:43127",
                                      "Helper managed by another process", false, "Z/UNTO \u25CF"}));
}

TEST_F(HealthStatusTable, Stopped) {
  world.scribbleOnDisplay();
  tick();
  EXPECT_EQ(world.display(), (Display{"ZUNTO Helper Stopped", "Start Helper", true, "Z/UNTO"}));
}

// Who writes which state.

using UpdateStatusCallersTable = HealthMonitorTest;

TEST_F(UpdateStatusCallersTable, ATickPassesItsProbesAnswerAndOwnedOnlyForTheRunningOwnChild) {
  world.scribbleOnDisplay();
  tick();
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
  world.health.answerHealthy();
  tick();
  EXPECT_EQ(world.display(), testing::foreignDisplay);
  world.startChild();
  tick();
  EXPECT_EQ(world.display(), testing::readyDisplay);
}

TEST_F(UpdateStatusCallersTable, AStartWhoseFirstProbeIsHealthyPassesOwnedWhenTheHeldChildRuns) {
  world.startChild();
  world.health.answerHealthy();
  world.scribbleOnDisplay();
  world.start();
  world.clock.runTurns();
  EXPECT_EQ(world.display(), testing::readyDisplay);
  answerHealthyWhileTheChildEnds();
  world.start();
  EXPECT_TRUE(world.clock.runOneTurn());
  EXPECT_EQ(world.display(), testing::foreignDisplay) << "held, but no longer running";
}

TEST_F(UpdateStatusCallersTable, AStartThatIsHealthyAfterLaunchingPassesOwned) {
  world.health.answerHealthyAfter(1);
  world.start();
  world.clock.runTurns();
  world.scribbleOnDisplay();
  world.clock.advance(150ms);
  EXPECT_EQ(world.display(), testing::readyDisplay);
}

TEST_F(UpdateStatusCallersTable, AStartThatGivesUpPassesNeitherAlsoWithoutAChildToStop) {
  world.start();
  world.clock.advance(150ms);
  world.child().end();
  world.clock.runTurns();
  world.scribbleOnDisplay();
  world.clock.advance(9s - 150ms);
  ASSERT_EQ(world.alerts.openCount(), 1U);
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
}

TEST_F(UpdateStatusCallersTable, StoppingAnExistingChildPassesNeither) {
  world.startChild();
  world.scribbleOnDisplay();
  world.delegate->stopProcessor();
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
}

TEST_F(UpdateStatusCallersTable, TheEndNoticeOfTheChildPassesNeither) {
  world.startChild();
  world.scribbleOnDisplay();
  world.child().end();
  world.clock.runTurns();
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
}

// From state to state.

using HealthTransitionTable = HealthMonitorTest;

TEST_F(HealthTransitionTable, FromNoneToStartingWhenTheMenuIsBuilt) {
  EXPECT_EQ(world.display(), testing::startingDisplay);
}

TEST_F(HealthTransitionTable, FromAnyToStartingInTheStatusLineAloneWhenAChildIsLaunched) {
  tick();
  ASSERT_EQ(world.display(), testing::stoppedDisplay);
  world.start();
  world.clock.runTurns();
  EXPECT_EQ(world.display(), (Display{"Starting ZUNTO Helper\u2026", "Start Helper", true, "Z/UNTO"}));
}

TEST_F(HealthTransitionTable, FromStartingToReadyWhenTheLaunchedChildAnswersHealthy) {
  world.health.answerHealthyAfter(1);
  world.start();
  world.clock.runTurns();
  ASSERT_EQ(world.display().statusLine, "Starting ZUNTO Helper\u2026");
  world.clock.advance(150ms);
  EXPECT_EQ(world.display(), testing::readyDisplay);
}

TEST_F(HealthTransitionTable, FromAnyToReadyWhenAFirstProbeIsHealthyAndTheOwnChildRuns) {
  world.startChild();
  world.health.nobodyListens();
  tick();
  ASSERT_EQ(world.display(), testing::stoppedDisplay);
  world.health.answerHealthy();
  world.start();
  world.clock.runTurns();
  EXPECT_EQ(world.display(), testing::readyDisplay);
}

TEST_F(HealthTransitionTable, FromAnyToForeignWhenAFirstProbeIsHealthyWithoutARunningOwnChild) {
  world.health.answerHealthy();
  world.start();
  world.clock.runTurns();
  EXPECT_EQ(world.display(), testing::foreignDisplay);
}

TEST_F(HealthTransitionTable, FromAnyToReadyWhenATickIsHealthyWhileTheOwnChildRuns) {
  world.startChild();
  world.scribbleOnDisplay();
  world.clock.advance(5s);
  EXPECT_EQ(world.display(), testing::readyDisplay);
}

TEST_F(HealthTransitionTable, FromAnyToForeignWhenATickIsHealthyWithoutARunningOwnChild) {
  world.health.answerHealthy();
  world.clock.advance(5s);
  EXPECT_EQ(world.display(), testing::foreignDisplay) << "no child is held";
  world.startChild();
  ASSERT_EQ(world.display(), testing::readyDisplay);
  answerHealthyWhileTheChildEnds();
  world.executor.spawn(world.delegate->refreshHealth());
  EXPECT_TRUE(world.clock.runOneTurn());
  EXPECT_EQ(world.display(), testing::foreignDisplay) << "the held child does not run";
}

TEST_F(HealthTransitionTable, FromAnyToStoppedWhenATicksProbeAnswersFalse) {
  world.startChild();
  ASSERT_EQ(world.display(), testing::readyDisplay);
  world.health.nobodyListens();
  world.clock.advance(5s);
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
}

TEST_F(HealthTransitionTable, FromAnyToStoppedWhenAStartGivesUpTheChildIsStoppedOrItEnds) {
  const std::vector<std::function<void(HelperWorld&)>> events = {[](HelperWorld& other) {
                                                                   other.start();
                                                                   other.clock.advance(9s);
                                                                 },
                                                                 [](HelperWorld& other) {
                                                                   other.startChild();
                                                                   other.delegate->stopProcessor();
                                                                 },
                                                                 [](HelperWorld& other) {
                                                                   other.startChild();
                                                                   other.child().end();
                                                                   other.clock.runTurns();
                                                                 }};
  for (const auto& event : events) {
    HelperWorld other;
    other.launch();
    event(other);
    EXPECT_EQ(other.display(), testing::stoppedDisplay);
  }
}

// Edge cases.

using HealthMonitorEdgeCases = HealthMonitorTest;

TEST_F(HealthMonitorEdgeCases, AnAnswerWithTheStatusInUpperCaseIsNotHealthy) {
  EXPECT_FALSE(probeOf(R"({"status":"OK"})"));
}

TEST_F(HealthMonitorEdgeCases, AnAnswer500WithAHealthyBodyIsNotHealthy) {
  world.health.answer({.status = 500, .body = R"({"status":"ok"})"});
  EXPECT_FALSE(probe());
}

TEST_F(HealthMonitorEdgeCases, AnArrayAndAStatusThatIsTrueOr1AreNotHealthy) {
  EXPECT_FALSE(probeOf(R"([{"status":"ok"}])"));
  EXPECT_FALSE(probeOf(R"({"status":true})"));
  EXPECT_FALSE(probeOf(R"({"status":1})"));
}

TEST_F(HealthMonitorEdgeCases, AProcessorThatNeedsMoreThanOneSecondIsNotHealthyForThatProbe) {
  world.health.answer({.delay = 1s + 1ms});
  EXPECT_FALSE(probe());
  world.health.answerHealthy();
  EXPECT_TRUE(probe());
}

TEST_F(HealthMonitorEdgeCases, WithoutCurlEveryStartLaunchesWaitsItsAttemptsAndGivesUpWithTheAlert) {
  world.commands.refuse("No such file or directory");
  const auto answer = world.start();
  world.clock.advance(9s);
  EXPECT_EQ(world.launches(), 1U);
  EXPECT_EQ(world.health.probes(), 61U);
  ASSERT_EQ(world.alerts.shown().size(), 1U);
  EXPECT_EQ(world.alerts.shown().at(0).messageText, "ZUNTO Helper could not start");
  world.alerts.press(testing::okButton);
  world.clock.runTurns();
  EXPECT_EQ(*answer, false);
}

TEST_F(HealthMonitorEdgeCases, AnotherProgramThatAnswersOkIsShownAsReadyButManagedByAnotherProcess) {
  world.health.answerHealthy();
  world.clock.advance(5s);
  EXPECT_EQ(world.display().statusLine, "ZUNTO Helper Ready \u00B7 127.0.0.1:43127");
  EXPECT_EQ(world.display().toggleTitle, "Helper managed by another process");
  EXPECT_FALSE(world.display().toggleEnabled);
  EXPECT_EQ(world.display().barTitle, "Z/UNTO \u25CF");
}

TEST_F(HealthMonitorEdgeCases, TheEndOfTheOwnChildShowsStoppedAtOnceBeforeAnyTick) {
  world.startChild();
  const std::size_t probesBefore = world.health.probes();
  const auto before = world.clock.now();
  world.child().end();
  world.clock.runTurns();
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
  EXPECT_EQ(world.health.probes(), probesBefore);
  EXPECT_EQ(world.clock.now(), before);
}

TEST(HelperStatusDeathTest, TheStartingStateHasNoTextsOfItsOwn) {
  EXPECT_DEATH((void)textsOf(HelperStatus::starting),
               "fatal error: the starting state has no texts of its own\n");
}

}  // namespace
}  // namespace zunto
