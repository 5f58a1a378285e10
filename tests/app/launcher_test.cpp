#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "helper_world.h"

namespace zunto {
namespace {

using namespace std::chrono_literals;
using testing::FakeChild;
using testing::FakeOutputFile;
using testing::HelperWorld;
using testing::Journal;
using testing::okButton;
using testing::showLogButton;
using Signals = std::vector<FakeChild::Signal>;

constexpr const char* couldNotStart = "ZUNTO Helper could not start";
constexpr const char* incomplete = "ZUNTO Helper is incomplete";
constexpr const char* portMessage =
    "Port 43127 may already be in use, or a bundled component could not run. Open the local log for details.";

struct LauncherTest : ::testing::Test {
  HelperWorld world;

  LauncherTest() { world.launch(); }

  void expectAlert(const std::string& title, const std::string& message) {
    ASSERT_EQ(world.alerts.shown().size(), 1U);
    EXPECT_EQ(world.alerts.shown().at(0).messageText, title);
    EXPECT_EQ(world.alerts.shown().at(0).informativeText, message);
    EXPECT_EQ(world.alerts.shown().at(0).buttons, (std::vector<std::string>{"OK", "Show Log"}));
  }
  void dismissAlert(std::size_t button = okButton) {
    ASSERT_EQ(world.alerts.openCount(), 1U);
    world.alerts.press(button);
    world.clock.runTurns();
  }
  void expectNothingHeld() {
    EXPECT_FALSE(world.fields().processor);
    EXPECT_FALSE(world.fields().logHandle);
  }
  /// What the journal holds of the checks and the launch, without timers and probes.
  [[nodiscard]] Journal stepsWithoutProbes() const {
    Journal steps = world.journal;
    std::erase_if(steps, [](const std::string& step) {
      return step == "probe" || step.find("timer") != std::string::npos;
    });
    return steps;
  }
};

// Required components.

struct Component {
  std::string name;
  std::filesystem::path location;
  std::string testName;

  friend void PrintTo(const Component& row, std::ostream* out) { *out << row.name; }
};

struct ComponentsTable : LauncherTest, ::testing::WithParamInterface<Component> {};

TEST_P(ComponentsTable, AMissingOneIsNamedInTheAlertAndNothingIsLaunched) {
  world.files.removeTree(GetParam().location);
  const auto answer = world.start();
  world.clock.runTurns();
  expectAlert(incomplete, "A required bundled component is missing: " + GetParam().name +
                              ". Download a fresh copy of the app.");
  EXPECT_EQ(world.launches(), 0U);
  dismissAlert();
  EXPECT_EQ(*answer, false);
}

const std::vector<Component> components = {
    {"node", testing::toolFolder / "node", "node"},
    {"yt-dlp", testing::toolFolder / "yt-dlp", "ytDlp"},
    {"ffmpeg", testing::toolFolder / "ffmpeg", "ffmpeg"},
    {"ffprobe", testing::toolFolder / "ffprobe", "ffprobe"},
    {"index.mjs", testing::scriptFile, "script"},
};

INSTANTIATE_TEST_SUITE_P(Rows, ComponentsTable, ::testing::ValuesIn(components),
                         [](const auto& row) { return row.param.testName; });

struct ExecutableComponents : LauncherTest, ::testing::WithParamInterface<Component> {};

TEST_P(ExecutableComponents, OneThatIsNotExecutableIsAMissingOne) {
  world.files.addFile(GetParam().location);
  world.start();
  world.clock.runTurns();
  expectAlert(incomplete, "A required bundled component is missing: " + GetParam().name +
                              ". Download a fresh copy of the app.");
}

TEST_P(ExecutableComponents, AFolderInItsPlaceIsAMissingOne) {
  world.files.removeTree(GetParam().location);
  world.files.addFolder(GetParam().location);
  world.start();
  world.clock.runTurns();
  EXPECT_EQ(world.alerts.shown().size(), 1U);
  EXPECT_EQ(world.launches(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Tools, ExecutableComponents,
                         ::testing::ValuesIn(components.begin(), components.end() - 1),
                         [](const auto& row) { return row.param.testName; });

TEST_F(LauncherTest, TheScriptNeedNotBeExecutable) {
  ASSERT_FALSE(world.files.isExecutableFile(testing::scriptFile));
  world.start();
  world.clock.runTurns();
  EXPECT_EQ(world.launches(), 1U);
}

TEST_F(LauncherTest, ComponentsAreTestedInOrderThenTheLogIsOpenedThenTheChildIsLaunched) {
  world.journal.clear();
  world.start();
  world.clock.runTurns();
  EXPECT_EQ(stepsWithoutProbes(),
            (Journal{"is executable node", "is executable yt-dlp", "is executable ffmpeg",
                     "is executable ffprobe", "exists index.mjs", "create folder ZUNTO Helper",
                     "exists helper.log", "create file helper.log", "open helper.log", "launch node"}));
}

TEST_F(LauncherTest, AfterAMissingComponentNoLaterOneIsTestedAndTheLogIsNotTouched) {
  world.files.removeTree(testing::toolFolder / "yt-dlp");
  world.journal.clear();
  world.start();
  world.clock.runTurns();
  EXPECT_EQ(stepsWithoutProbes(), (Journal{"is executable node", "is executable yt-dlp", "activate",
                                           "alert ZUNTO Helper is incomplete"}));
  EXPECT_FALSE(world.files.exists(testing::logFolder));
  dismissAlert();
  EXPECT_FALSE(world.files.exists(testing::logFolder));
}

// The child.

TEST_F(LauncherTest, TheChildIsTheRuntimeWithTheScriptAsItsOneArgumentInTheProcessorFolder) {
  world.start();
  world.clock.runTurns();
  const ChildSpec& spec = world.child().spec();
  EXPECT_EQ(spec.executable, "/app/resources/runtime/bin/node");
  EXPECT_EQ(spec.arguments, std::vector<std::string>{"/app/resources/processor/src/index.mjs"});
  EXPECT_EQ(spec.workingFolder, "/app/resources/processor");
}

struct EnvironmentRow {
  std::string key;
  std::string value;

  friend void PrintTo(const EnvironmentRow& row, std::ostream* out) { *out << row.key; }
};

struct ChildEnvironmentTable : LauncherTest, ::testing::WithParamInterface<EnvironmentRow> {};

TEST_P(ChildEnvironmentTable, TheKeyIsSetOverAnInheritedValue) {
  world.host.variables = {{GetParam().key, "inherited"}, {"OTHER", "kept"}};
  world.start();
  world.clock.runTurns();
  const auto& environment = world.child().spec().environment;
  EXPECT_EQ(environment.at(GetParam().key), GetParam().value);
  EXPECT_EQ(environment.at("OTHER"), "kept");
  EXPECT_EQ(environment.size(), 10U) << "the nine keys and the inherited one";
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ChildEnvironmentTable,
    ::testing::Values(EnvironmentRow{"HOST", "127.0.0.1"}, EnvironmentRow{"PORT", "43127"},
                      EnvironmentRow{"PATH", "/app/resources/runtime/bin:/usr/bin:/bin"},
                      EnvironmentRow{"YT_DLP_PATH", "/app/resources/runtime/bin/yt-dlp"},
                      EnvironmentRow{"FFMPEG_PATH", "/app/resources/runtime/bin/ffmpeg"},
                      EnvironmentRow{"FFPROBE_PATH", "/app/resources/runtime/bin/ffprobe"},
                      EnvironmentRow{"ZUNTO_DEPENDENCIES_VERIFIED", "1"},
                      EnvironmentRow{"ZUNTO_HELPER_PARENT_PID", "4242"},
                      EnvironmentRow{"TEMP_ROOT", "/tmp/zunto-video-import"}),
    [](const auto& row) { return row.param.key; });

TEST_F(LauncherTest, TheTemporaryFolderOfTheProcessorIsNotMade) {
  world.start();
  world.clock.runTurns();
  EXPECT_FALSE(world.files.exists("/tmp/zunto-video-import"));
}

TEST_F(LauncherTest, ALaunchHoldsTheChildAndItsLogAndShowsStartingInTheStatusLineAlone) {
  world.scribbleOnDisplay();
  world.start();
  world.clock.runTurns();
  EXPECT_TRUE(world.fields().processor);
  EXPECT_TRUE(world.fields().logHandle);
  testing::Display expected = testing::scribbledDisplay;
  expected.statusLine = "Starting ZUNTO Helper\u2026";
  EXPECT_EQ(world.display(), expected);
}

TEST(LauncherWithoutAMenu, ALaunchBeforeTheMenuIsBuiltWorksWithoutADisplay) {
  HelperWorld world;
  world.health.answerHealthyAfter(1);
  const auto answer = world.start();
  world.clock.advance(150ms);
  EXPECT_EQ(*answer, true);
  EXPECT_TRUE(world.fields().processor);
}

// The start sequence.

TEST_F(LauncherTest, AProcessorThatAnswersAtOnceNeedsOneProbeAndNoLaunch) {
  world.health.answerHealthy();
  const auto answer = world.start();
  world.clock.runTurns();
  EXPECT_EQ(*answer, true);
  EXPECT_EQ(world.health.probes(), 1U);
  EXPECT_EQ(world.launches(), 0U);
  EXPECT_FALSE(world.fields().isStarting);
}

TEST_F(LauncherTest, EveryProbeAfterALaunchComesAfterASleepOf150Ms) {
  world.journal.clear();
  world.health.answerHealthyAfter(3);
  world.start();
  world.clock.runTurns();
  EXPECT_EQ(world.journal.back(), "start timer 150 ms");
  EXPECT_EQ(world.health.probes(), 1U);
  world.clock.advance(150ms - 1ns);
  EXPECT_EQ(world.health.probes(), 1U);
  world.clock.advance(1ns);
  EXPECT_EQ(world.health.probes(), 2U);
  world.clock.advance(150ms);
  EXPECT_EQ(world.health.probes(), 3U);
  world.clock.advance(150ms);
  EXPECT_EQ(world.health.probes(), 4U);
  EXPECT_FALSE(world.fields().isStarting);
}

TEST_F(LauncherTest, ItGivesUpAfter60ProbesAt9SecondsAndNotBefore) {
  const auto answer = world.start();
  world.clock.advance(9s - 1ns);
  EXPECT_EQ(world.health.probes(), 1U + 59U);
  EXPECT_TRUE(world.alerts.shown().empty());
  world.clock.advance(1ns);
  EXPECT_EQ(world.health.probes(), 1U + 60U);
  EXPECT_EQ(world.alerts.openCount(), 1U);
  dismissAlert();
  EXPECT_EQ(*answer, false);
}

TEST_F(LauncherTest, AnAnswerAtThe60thProbeIsInTime) {
  world.health.answerHealthyAfter(60);
  const auto answer = world.start();
  world.clock.advance(9s);
  EXPECT_EQ(*answer, true);
  EXPECT_EQ(world.display(), testing::readyDisplay);
  EXPECT_TRUE(world.alerts.shown().empty());
}

TEST_F(LauncherTest, GivingUpStopsTheChildShowsStoppedAndThenAlertsInThisOrder) {
  world.start();
  world.clock.advance(9s - 1ns);
  world.child().ignore(SIGINT);
  world.journal.clear();
  world.clock.advance(1ns);
  EXPECT_EQ(world.journal, (Journal{"end timer 150 ms", "probe", "interrupt", "terminate after 2000 ms",
                                    "activate", "alert ZUNTO Helper could not start"}));
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
  expectNothingHeld();
}

TEST_F(LauncherTest, TheAlertKeepsTheStartSequenceGoingUntilItIsDismissed) {
  const auto answer = world.start();
  world.clock.advance(9s);
  ASSERT_EQ(world.alerts.openCount(), 1U);
  world.clock.advance(60s);
  EXPECT_TRUE(world.fields().isStarting);
  EXPECT_EQ(*answer, std::nullopt);
  EXPECT_EQ(world.health.probes(), 61U) << "no tick may probe while the alert stands";
  dismissAlert();
  EXPECT_FALSE(world.fields().isStarting);
  EXPECT_EQ(*answer, false);
}

TEST_F(LauncherTest, TheAlertOfARefusedLaunchKeepsItGoingTheSameWay) {
  world.spawner.refuseLaunches("Permission denied");
  world.start();
  world.clock.advance(20s);
  ASSERT_EQ(world.alerts.openCount(), 1U);
  EXPECT_TRUE(world.fields().isStarting);
  const auto other = world.start();
  world.clock.runTurns();
  EXPECT_EQ(*other, false);
  EXPECT_EQ(world.alerts.openCount(), 1U);
  dismissAlert();
  EXPECT_FALSE(world.fields().isStarting);
}

TEST_F(LauncherTest, AChildSeenNotRunningWhileItIsHeldEndsTheWaitAtOnce) {
  int probes = 0;
  world.health.answerBy([&]() -> std::optional<testing::HealthAnswer> {
    if (++probes == 3) world.child().end();  // during the probe, so that its end notice is still to come
    return std::nullopt;
  });
  world.start();
  world.clock.advance(300ms);
  EXPECT_EQ(world.health.probes(), 3U);
  expectAlert(couldNotStart, portMessage);
  world.clock.advance(10s);
  EXPECT_EQ(world.health.probes(), 3U);
}

TEST_F(LauncherTest, AChildThatItsEndNoticeHasMadeForgottenCostsAll60Probes) {
  world.start();
  world.clock.advance(200ms);
  world.child().end();
  world.clock.runTurns();
  ASSERT_FALSE(world.fields().processor);
  world.clock.advance(9s - 200ms - 1ns);
  EXPECT_TRUE(world.alerts.shown().empty());
  EXPECT_EQ(world.health.probes(), 60U);
  world.clock.advance(1ns);
  EXPECT_EQ(world.health.probes(), 61U);
  expectAlert(couldNotStart, portMessage);
}

TEST_F(LauncherTest, AnotherProcessorThatAnswersDuringTheWaitCountsAsOwned) {
  world.start();
  world.clock.advance(150ms);
  world.child().end();
  world.clock.runTurns();
  world.health.answerHealthy();
  world.clock.advance(150ms);
  EXPECT_EQ(world.display(), testing::readyDisplay);
  EXPECT_FALSE(world.fields().processor);
}

TEST_F(LauncherTest, ACancelledSleepCountsAsACompletedOneAndTheWaitGoesOn) {
  const auto answer = world.start();
  world.clock.runTurns();
  world.lastTask->cancel();
  world.clock.runTurns();
  EXPECT_EQ(world.clock.now(), 0ns);
  EXPECT_EQ(world.health.probes(), 61U);
  expectAlert(couldNotStart, portMessage);
  EXPECT_TRUE(world.fields().isStarting) << "the alert is not cancelled";
  dismissAlert();
  EXPECT_EQ(*answer, false);
  EXPECT_FALSE(world.fields().isStarting);
}

TEST_F(LauncherTest, ACancelledStartSequenceStillAnswersTrueWhenTheChildComesUp) {
  world.health.answerHealthyAfter(5);
  const auto answer = world.start();
  world.clock.runTurns();
  world.lastTask->cancel();
  world.clock.runTurns();
  EXPECT_EQ(*answer, true);
  EXPECT_FALSE(world.fields().isStarting);
  EXPECT_TRUE(world.fields().processor);
}

TEST_F(LauncherTest, AChildThatIsHeldButDoesNotAnswerEndsTheSequenceWithoutAnyMessageOrDisplay) {
  world.startChild();
  world.health.nobodyListens();
  world.scribbleOnDisplay();
  const auto answer = world.start();
  world.clock.runTurns();
  EXPECT_EQ(*answer, false);
  EXPECT_FALSE(world.fields().isStarting);
  EXPECT_EQ(world.launches(), 1U);
  EXPECT_TRUE(world.alerts.shown().empty());
  EXPECT_EQ(world.display(), testing::scribbledDisplay);
}

TEST_F(LauncherTest, ASecondCallersHealthyProbeLeavesTheDisplayToTheStartSequence) {
  world.start();
  world.clock.runTurns();
  world.health.answerHealthy();
  world.scribbleOnDisplay();
  const auto second = world.start();
  world.clock.runTurns();
  EXPECT_EQ(*second, true);
  EXPECT_EQ(world.display(), testing::scribbledDisplay);
  EXPECT_TRUE(world.fields().isStarting);
}

// A child that has ended is held until its end notice has been handled.

TEST_F(LauncherTest, AHealthyProbeCountsAlsoWhenTheHeldChildHasEnded) {
  world.start();
  world.clock.runTurns();
  world.health.answerBy([this] {
    world.child().end();
    return std::optional(testing::HealthAnswer{});
  });
  world.loop.afterTimer = [this] { EXPECT_EQ(world.display(), testing::readyDisplay); };
  world.clock.advance(150ms);
  EXPECT_FALSE(world.fields().isStarting);
  EXPECT_EQ(world.health.probes(), 2U);
  EXPECT_TRUE(world.alerts.shown().empty());
}

TEST_F(LauncherTest, AHeldChildThatHasEndedIsNotReplaced) {
  world.startChild();
  world.health.answerBy([this] {
    world.child().end();
    return std::nullopt;
  });
  const auto answer = world.start();
  EXPECT_TRUE(world.clock.runOneTurn());
  EXPECT_EQ(*answer, false);
  EXPECT_EQ(world.launches(), 1U);
  EXPECT_TRUE(world.fields().processor);
  EXPECT_TRUE(world.alerts.shown().empty());
}

TEST_F(LauncherTest, AHealthyFirstProbeForgetsNoChildThatHasEnded) {
  world.startChild();
  world.health.answerBy([this] {
    world.child().end();
    return std::optional(testing::HealthAnswer{});
  });
  const auto answer = world.start();
  EXPECT_TRUE(world.clock.runOneTurn());
  EXPECT_EQ(*answer, true);
  EXPECT_TRUE(world.fields().processor);
  EXPECT_TRUE(world.fields().logHandle);
}

TEST_F(LauncherTest, WhileAChildIsHeldNoComponentIsTested) {
  world.startChild();
  world.health.nobodyListens();
  world.files.removeTree(testing::scriptFile);
  world.journal.clear();
  const auto answer = world.start();
  world.clock.runTurns();
  EXPECT_EQ(*answer, false);
  EXPECT_EQ(world.journal, Journal{"probe"});
}

struct OpenPage : LauncherTest {
  const std::string page = fixedAddresses().videoImportPageURL.absoluteString();
};

TEST_F(OpenPage, OnRequestThePageIsOpenedWhenAProcessorAlreadyAnswers) {
  world.health.answerHealthy();
  world.start(true);
  world.clock.runTurns();
  EXPECT_EQ(world.workspace.openedAddresses(), std::vector<std::string>{page});
}

TEST_F(OpenPage, OnRequestThePageIsOpenedWhenALaunchedChildAnswers) {
  world.health.answerHealthyAfter(2);
  world.start(true);
  world.clock.advance(150ms);
  EXPECT_TRUE(world.workspace.openedAddresses().empty());
  world.clock.advance(150ms);
  EXPECT_EQ(world.workspace.openedAddresses(), std::vector<std::string>{page});
}

TEST_F(OpenPage, WithoutTheRequestThePageIsNotOpened) {
  world.health.answerHealthyAfter(1);
  world.start();
  world.clock.advance(150ms);
  EXPECT_TRUE(world.workspace.openedAddresses().empty());
}

TEST_F(OpenPage, AFailedStartOpensNoPage) {
  world.start(true);
  world.clock.advance(9s);
  dismissAlert();
  EXPECT_TRUE(world.workspace.openedAddresses().empty());
}

TEST_F(OpenPage, ACallDuringAStartSequenceOpensNoPage) {
  world.start();
  world.clock.runTurns();
  world.health.answerHealthy();
  const auto second = world.start(true);
  world.clock.runTurns();
  EXPECT_EQ(*second, true);
  EXPECT_TRUE(world.workspace.openedAddresses().empty());
}

// The states.

using SupervisorStateTable = LauncherTest;

TEST_F(SupervisorStateTable, IdleHoldsNoChildAndIsNotStartingAlsoWhenAnotherProcessorAnswers) {
  EXPECT_FALSE(world.fields().processor);
  EXPECT_FALSE(world.fields().isStarting);
  world.health.answerHealthy();
  world.start();
  world.clock.runTurns();
  EXPECT_FALSE(world.fields().processor);
  EXPECT_FALSE(world.fields().isStarting);
}

TEST_F(SupervisorStateTable, StartingHoldsAChildOrNone) {
  std::vector<std::pair<bool, bool>> states;
  world.health.answerBy([&]() -> std::optional<testing::HealthAnswer> {
    states.emplace_back(world.fields().processor != nullptr, world.fields().isStarting);
    return std::nullopt;
  });
  world.start();
  world.clock.advance(150ms);
  EXPECT_EQ(states, (std::vector<std::pair<bool, bool>>{{false, true}, {true, true}}));
}

TEST_F(SupervisorStateTable, RunningHoldsAChildThatHasBeenSeenHealthyAndIsNotStarting) {
  world.startChild();
  EXPECT_TRUE(world.fields().processor);
  EXPECT_FALSE(world.fields().isStarting);
}

using SupervisorTransitions = LauncherTest;

TEST_F(SupervisorTransitions, RunningToStartingAndBackWhenTheFirstProbeFindsTheOwnChildHealthy) {
  world.startChild();
  bool wasStarting = false;
  world.health.answerBy([&] {
    wasStarting = world.fields().isStarting;
    return std::optional(testing::HealthAnswer{});
  });
  world.start();
  world.clock.runTurns();
  EXPECT_TRUE(wasStarting);
  EXPECT_FALSE(world.fields().isStarting);
  EXPECT_TRUE(world.fields().processor);
  EXPECT_EQ(world.display(), testing::readyDisplay);
}

TEST_F(SupervisorTransitions, StartingToIdleWhenTheLaunchFails) {
  world.spawner.refuseLaunches("Permission denied");
  world.start();
  world.clock.runTurns();
  dismissAlert();
  expectNothingHeld();
  EXPECT_FALSE(world.fields().isStarting);
}

TEST_F(SupervisorTransitions, StartingToIdleWhenTheWaitFails) {
  world.start();
  world.clock.advance(9s);
  dismissAlert();
  expectNothingHeld();
  EXPECT_FALSE(world.fields().isStarting);
}

TEST_F(SupervisorTransitions, RunningToIdleWhenTheProcessorIsStopped) {
  world.startChild();
  world.delegate->stopProcessor();
  expectNothingHeld();
  EXPECT_FALSE(world.fields().isStarting);
}

TEST_F(SupervisorTransitions, RunningToIdleWhenTheChildEnds) {
  world.startChild();
  world.child().end();
  world.clock.runTurns();
  expectNothingHeld();
  EXPECT_FALSE(world.fields().isStarting);
}

TEST_F(SupervisorTransitions, AfterAFailureTheNextStartBeginsAnew) {
  world.start();
  world.clock.advance(9s);
  dismissAlert();
  world.health.answerHealthyAfter(1);
  const auto answer = world.start();
  world.clock.advance(150ms);
  EXPECT_EQ(*answer, true);
  EXPECT_EQ(world.launches(), 2U);
}

// Failures.

using LaunchFailureTable = LauncherTest;

TEST_F(LaunchFailureTable, AChildThatIsAlreadyHeldAnswersFalseAndTheUserSeesNothing) {
  world.startChild();
  world.health.nobodyListens();
  const auto answer = world.start();
  world.clock.runTurns();
  EXPECT_EQ(*answer, false);
  EXPECT_TRUE(world.alerts.shown().empty());
  EXPECT_TRUE(world.fields().processor);
  EXPECT_TRUE(world.child().signals().empty());
}

TEST_F(LaunchFailureTable, WithoutAResourcesFolderItAnswersFalseAndTheUserSeesNothing) {
  world.host.resources.reset();
  const auto answer = world.start();
  world.clock.runTurns();
  EXPECT_EQ(*answer, false);
  EXPECT_TRUE(world.alerts.shown().empty());
  EXPECT_EQ(world.launches(), 0U);
  EXPECT_EQ(world.display(), testing::startingDisplay);
  EXPECT_FALSE(world.fields().isStarting);
}

TEST_F(LaunchFailureTable, AMissingComponentIsNamedAndNothingIsLaunchedNorTheLogOpened) {
  world.files.removeTree(testing::toolFolder / "ffprobe");
  const auto answer = world.start();
  world.clock.runTurns();
  expectAlert(incomplete,
              "A required bundled component is missing: ffprobe. Download a fresh copy of the app.");
  dismissAlert();
  EXPECT_EQ(*answer, false);
  EXPECT_EQ(world.launches(), 0U);
  EXPECT_FALSE(world.files.exists(testing::logFile));
  expectNothingHeld();
}

TEST_F(LaunchFailureTable, ALogThatCannotBeMadeShowsTheErrorsOwnDescription) {
  world.files.refuse("/home/user", "Read-only file system");
  const auto answer = world.start();
  world.clock.runTurns();
  expectAlert(couldNotStart, "The folder \"user\" could not be made: Read-only file system.");
  expectNothingHeld();
  dismissAlert();
  EXPECT_EQ(*answer, false);
  EXPECT_EQ(world.launches(), 0U);
}

TEST_F(LaunchFailureTable, ALogThatCannotBePositionedShowsTheErrorsOwnDescription) {
  world.files.refuseSeeks("Illegal seek");
  const auto answer = world.start();
  world.clock.runTurns();
  expectAlert(couldNotStart, "The end of the file \"helper.log\" could not be found: Illegal seek.");
  expectNothingHeld();
  dismissAlert();
  EXPECT_EQ(*answer, false);
  EXPECT_EQ(world.launches(), 0U);
}

TEST_F(LaunchFailureTable, ALaunchThatTheSystemRefusesShowsTheErrorsOwnDescription) {
  world.spawner.refuseLaunches("Exec format error");
  const auto answer = world.start();
  world.clock.runTurns();
  ASSERT_EQ(world.alerts.shown().size(), 1U);
  EXPECT_EQ(world.alerts.shown().at(0).messageText, couldNotStart);
  EXPECT_NE(world.alerts.shown().at(0).informativeText.find("Exec format error"), std::string::npos);
  expectNothingHeld();
  dismissAlert();
  EXPECT_EQ(*answer, false);
}

TEST_F(LaunchFailureTable, NoHealthAfterTheLaunchShowsStoppedAndThePortAlertAndStopsTheChild) {
  const auto answer = world.start();
  world.clock.advance(9s);
  expectAlert(couldNotStart, portMessage);
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
  EXPECT_FALSE(world.child().isRunning());
  dismissAlert();
  EXPECT_EQ(*answer, false);
}

TEST_F(LauncherTest, AFailureBeforeTheLaunchLeavesTheDisplayToTheNextTick) {
  world.spawner.refuseLaunches("Permission denied");
  world.scribbleOnDisplay();
  world.start();
  world.clock.runTurns();
  dismissAlert();
  EXPECT_EQ(world.display(), testing::scribbledDisplay);
  world.clock.advance(5s);
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
}

TEST_F(LauncherTest, NothingIsHeldAnyMoreWhenTheAlertOfARefusedLaunchAppears) {
  world.spawner.refuseLaunches("Permission denied");
  world.start();
  world.clock.runTurns();
  ASSERT_EQ(world.alerts.openCount(), 1U);
  expectNothingHeld();
}

// The alert.

TEST_F(LauncherTest, TheAlertComesAfterTheApplicationWasBroughtToTheFront) {
  world.files.removeTree(testing::scriptFile);
  world.journal.clear();
  world.start();
  world.clock.runTurns();
  ASSERT_GE(world.journal.size(), 2U);
  EXPECT_EQ(Journal(world.journal.end() - 2, world.journal.end()),
            (Journal{"activate", "alert ZUNTO Helper is incomplete"}));
}

TEST_F(LauncherTest, ShowLogInTheAlertRevealsTheLogFile) {
  world.files.removeTree(testing::scriptFile);
  world.start();
  world.clock.runTurns();
  dismissAlert(showLogButton);
  EXPECT_EQ(world.workspace.revealedLocations(), std::vector<std::filesystem::path>{testing::logFile});
  EXPECT_FALSE(world.fields().isStarting);
}

TEST_F(LauncherTest, OkInTheAlertRevealsNothing) {
  world.files.removeTree(testing::scriptFile);
  world.start();
  world.clock.runTurns();
  dismissAlert(okButton);
  EXPECT_TRUE(world.workspace.revealedLocations().empty());
}

// Stopping.

TEST_F(LauncherTest, StoppingInterruptsTheChildWhileItIsStillHeldAndForgetsItBeforeTheDisplaySaysSo) {
  world.startChild();
  Journal steps;
  const auto log = world.fields().logHandle;
  world.child().onSignal(SIGINT, [&](FakeChild&) {
    steps.emplace_back(world.fields().processor && world.fields().logHandle ? "interrupted while held"
                                                                            : "interrupted too late");
  });
  const auto subscription = world.fields().statusMenuItem->observe([&] {
    const bool isForgotten =
        !world.fields().processor && !world.fields().logHandle && log->descriptor() == -1;
    steps.emplace_back(isForgotten ? "stopped shown" : "shown too early");
  });
  world.delegate->stopProcessor();
  EXPECT_EQ(steps, (Journal{"interrupted while held", "stopped shown"}));
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
}

TEST_F(LauncherTest, StoppingAChildThatHasEndedSendsNothingButForgetsIt) {
  world.startChild();
  world.child().end();
  world.journal.clear();
  world.delegate->stopProcessor();
  EXPECT_EQ(world.journal, Journal{});
  expectNothingHeld();
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
}

TEST_F(LauncherTest, AChildThatEndsOnTheInterruptIsNotTerminated) {
  world.startChild();
  world.delegate->stopProcessor();
  world.clock.advance(10s);
  EXPECT_EQ(world.child().signals(), (Signals{{SIGINT, 150ms}}));
}

TEST_F(LauncherTest, AFailureToCloseTheLogIsIgnored) {
  world.startChild();
  const auto file = std::dynamic_pointer_cast<FakeOutputFile>(world.fields().logHandle);
  ASSERT_TRUE(file);
  file->failClose("No space left on device");
  world.delegate->stopProcessor();
  expectNothingHeld();
  EXPECT_EQ(file->descriptor(), -1);
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
  EXPECT_TRUE(world.alerts.shown().empty());
}

TEST_F(LauncherTest, AChildThatIsStoppedAndReplacedIsTerminatedAndItsSuccessorIsNot) {
  world.startChild();
  world.child(0).ignore(SIGINT);
  world.delegate->stopProcessor();
  world.health.answerHealthyAfter(1);
  world.start();
  world.clock.advance(1999ms);
  ASSERT_EQ(world.launches(), 2U);
  EXPECT_TRUE(world.child(0).isRunning());
  world.clock.advance(1ms);
  EXPECT_EQ(world.child(0).signals(), (Signals{{SIGINT, 150ms}, {SIGTERM, 2150ms}}));
  EXPECT_TRUE(world.child(1).isRunning());
  EXPECT_TRUE(world.child(1).signals().empty());
}

// The end of a child.

TEST_F(LauncherTest, TheEndOfTheChildForgetsItAndShowsStoppedWithoutStoppingAnything) {
  world.startChild();
  world.journal.clear();
  world.child().end();
  EXPECT_TRUE(world.fields().processor) << "the end notice comes on a later turn";
  world.clock.runTurns();
  expectNothingHeld();
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
  EXPECT_EQ(world.journal, Journal{});
  EXPECT_TRUE(world.alerts.shown().empty());
}

TEST_F(LauncherTest, TheEndOfTheChildIsHandledInATaskOfItsOwn) {
  world.startChild();
  world.child().end();
  EXPECT_TRUE(world.clock.runOneTurn());
  EXPECT_TRUE(world.fields().processor) << "the notice itself only starts the task";
  EXPECT_TRUE(world.clock.runOneTurn());
  EXPECT_FALSE(world.fields().processor);
}

TEST_F(LauncherTest, TheEndOfTheChildReleasesTheLogHandle) {
  world.startChild();
  const std::weak_ptr<OutputFile> log = world.fields().logHandle;
  world.child().end();
  world.clock.runTurns();
  EXPECT_TRUE(log.expired());
}

TEST_F(LauncherTest, TheEndOfTheChildDoesNotCloseALogHandleThatSomebodyElseHolds) {
  world.startChild();
  const auto log = world.fields().logHandle;
  world.child().end();
  world.clock.runTurns();
  EXPECT_FALSE(world.fields().logHandle);
  EXPECT_NE(log->descriptor(), -1);
}

TEST_F(LauncherTest, TheEndOfAChildThatWasStoppedShowsStoppedAgain) {
  world.startChild();
  world.child().ignore(SIGINT);
  world.delegate->stopProcessor();
  world.scribbleOnDisplay();
  world.clock.advance(2s);
  ASSERT_FALSE(world.child().isRunning());
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
}

TEST_F(LauncherTest, TheEndOfAnOldChildClearsTheFieldsOfANewerOneThatRunsOn) {
  world.startChild();
  world.child(0).ignore(SIGINT);
  world.delegate->stopProcessor();
  world.health.answerHealthyAfter(1);
  world.start();
  world.clock.advance(150ms);
  ASSERT_EQ(world.launches(), 2U);
  ASSERT_TRUE(world.fields().processor);
  ASSERT_EQ(world.display(), testing::readyDisplay);

  world.child(0).end();
  world.clock.runTurns();

  expectNothingHeld();
  EXPECT_EQ(world.display(), testing::stoppedDisplay);
  EXPECT_TRUE(world.child(1).isRunning());
  EXPECT_TRUE(world.child(1).signals().empty());
}

// Edge cases.

using LauncherEdgeCases = LauncherTest;

TEST_F(LauncherEdgeCases, AProcessorOfAnotherProgramIsUsedWithoutLaunchingAndShownAsNotOwned) {
  world.health.answerHealthy();
  const auto answer = world.start();
  world.clock.runTurns();
  EXPECT_EQ(*answer, true);
  EXPECT_EQ(world.launches(), 0U);
  EXPECT_EQ(world.display(), testing::foreignDisplay);
}

TEST_F(LauncherEdgeCases, OfTwoCallersThatStartAtOnceTheSecondOnlyProbesAndAnswersThatProbe) {
  world.health.answerHealthyAfter(3);
  const auto first = world.start();
  const auto second = world.start();
  world.clock.runTurns();
  EXPECT_EQ(*second, false);
  EXPECT_EQ(*first, std::nullopt);
  EXPECT_EQ(world.health.probes(), 2U);
  world.clock.advance(300ms);
  EXPECT_EQ(*first, true);
  EXPECT_EQ(world.launches(), 1U);
}

TEST_F(LauncherEdgeCases, AnFfmpegThatIsNotExecutableIsNamedAndNeitherFfprobeNorTheScriptIsTested) {
  world.files.addFile(testing::toolFolder / "ffmpeg");
  world.journal.clear();
  world.start();
  world.clock.runTurns();
  expectAlert(incomplete,
              "A required bundled component is missing: ffmpeg. Download a fresh copy of the app.");
  EXPECT_EQ(stepsWithoutProbes(),
            (Journal{"is executable node", "is executable yt-dlp", "is executable ffmpeg", "activate",
                     "alert ZUNTO Helper is incomplete"}));
}

TEST_F(LauncherEdgeCases, AMissingScriptIsNamedIndexMjs) {
  world.files.removeTree(testing::scriptFile);
  world.start();
  world.clock.runTurns();
  expectAlert(incomplete,
              "A required bundled component is missing: index.mjs. Download a fresh copy of the app.");
}

TEST_F(LauncherEdgeCases, AChildThatExitsAtOnceCosts60ProbesOnceItsEndWasProcessedAndOneWhileItIsStillHeld) {
  world.spawner.runProgram([](FakeChild& child) { child.end(); });
  world.start();
  world.clock.runTurns();
  ASSERT_FALSE(world.fields().processor);
  world.clock.advance(9s);
  EXPECT_EQ(world.health.probes(), 1U + 60U);
  expectAlert(couldNotStart, portMessage);

  HelperWorld other;
  other.launch();
  int probes = 0;
  other.health.answerBy([&]() -> std::optional<testing::HealthAnswer> {
    if (++probes == 2) other.child().end();
    return std::nullopt;
  });
  other.start();
  other.clock.advance(9s);
  EXPECT_EQ(other.health.probes(), 1U + 1U);
  EXPECT_EQ(other.alerts.openCount(), 1U);
}

TEST_F(LauncherEdgeCases, AnInheritedPathAndHostAreReplacedForTheChild) {
  world.host.variables = {{"PATH", "/opt/evil:/usr/local/bin"}, {"HOST", "0.0.0.0"}};
  world.start();
  world.clock.runTurns();
  const auto& environment = world.child().spec().environment;
  EXPECT_EQ(environment.at("HOST"), "127.0.0.1");
  EXPECT_EQ(environment.at("PATH"), "/app/resources/runtime/bin:/usr/bin:/bin");
}

TEST_F(LauncherEdgeCases, AChildThatIgnoresTheInterruptIsTerminated2SecondsLater) {
  world.startChild();
  world.child().ignore(SIGINT);
  world.delegate->stopProcessor();
  EXPECT_EQ(world.child().signals(), (Signals{{SIGINT, 150ms}}));
  world.clock.advance(2s - 1ns);
  EXPECT_TRUE(world.child().isRunning());
  world.clock.advance(1ns);
  EXPECT_EQ(world.child().signals(), (Signals{{SIGINT, 150ms}, {SIGTERM, 2150ms}}));
  EXPECT_FALSE(world.child().isRunning());
}

TEST_F(LauncherEdgeCases, StoppingWithoutAChildDoesNothingAndDoesNotRefreshTheMenu) {
  world.scribbleOnDisplay();
  world.journal.clear();
  world.delegate->stopProcessor();
  EXPECT_EQ(world.journal, Journal{});
  EXPECT_EQ(world.display(), testing::scribbledDisplay);
}

}  // namespace
}  // namespace zunto
