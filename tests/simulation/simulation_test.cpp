// The whole logic under schedules that nobody thought of, and proof that the simulation sees what goes wrong.

#include "simulation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "tests/fakes/virtual_clock.h"

namespace zunto::simulation {
namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t parts = 10;

/// The seeds from 1 on, in parts of which each is a test.
class Schedules : public ::testing::TestWithParam<std::uint64_t> {};

TEST_P(Schedules, LeaveBothWitnessesInAgreement) {
  constexpr std::uint64_t perPart = ZUNTO_SCHEDULES / parts;
  std::uint64_t events = 0;
  for (std::uint64_t i = 0; i < perPart; ++i) {
    const std::uint64_t seed = 1 + GetParam() * perPart + i;
    blameCrashesOn(seed);
    const Verdict run = runSeed(seed);
    events += run.events;
    ASSERT_FALSE(run.failure) << report(seed, run);
  }
  std::cout << perPart << " schedules with " << events << " events hold\n";
}

INSTANTIATE_TEST_SUITE_P(Part, Schedules, ::testing::Range(std::uint64_t{0}, parts));

TEST(Simulation, RunsTheSameSeedAlike) {
  const Verdict first = runSeed(11);
  const Verdict second = runSeed(11);
  EXPECT_EQ(first.schedule, second.schedule);
  EXPECT_EQ(first.events, second.events);
}

TEST(Simulation, RunsTheScheduleOfASeedAsTheSeed) {
  for (std::uint64_t seed = 1; seed <= 50; ++seed) {
    const Verdict run = runSeed(seed);
    EXPECT_EQ(runSchedule(run.schedule).events, run.events) << seed;
  }
}

TEST(Simulation, GoesDifferentWaysWithDifferentSeeds) { EXPECT_NE(runSeed(1).schedule, runSeed(2).schedule); }

TEST(Simulation, ReachesEveryFlow) {
  Coverage reached;
  for (std::uint64_t seed = 1; seed <= 200; ++seed) static_cast<void>(runSeed(seed, {.coverage = &reached}));
  EXPECT_GT(reached.launches, 100U);
  EXPECT_GT(reached.givenUp, 20U);
  EXPECT_GT(reached.foreign, 20U);
  EXPECT_GT(reached.analyses, 100U);
  EXPECT_GT(reached.downloads, 100U);
  EXPECT_GT(reached.cancellations, 10U);
  EXPECT_GT(reached.panels, 50U);
  EXPECT_GT(reached.saves, 20U);
  EXPECT_GT(reached.quits, 2U);
  EXPECT_GT(reached.olderEnds, 5U);
}

/// How the run of a seed ends in which `change` is made to the program before every step from the tenth on.
Verdict tampered(const std::function<void(const HelperDelegate&)>& change) {
  return runSeed(3, {.tamper = [&change](std::size_t step, const HelperDelegate& delegate) {
                   if (step >= 10) change(delegate);
                 }});
}

TEST(Simulation, HoldsForTheSeedThatIsTamperedWith) {
  EXPECT_FALSE(tampered([](const auto&) {}).failure);
}

TEST(Simulation, SeesAStatusThatTheModelHasNot) {
  const Verdict run = tampered([](const HelperDelegate& delegate) {
    delegate.fields().downloaderWindow->form().statusLabel.setText("scribbled");
  });
  EXPECT_NE(run.failure.value_or("none").find("the window's status line"), std::string::npos);
}

TEST(Simulation, SeesADisplayThatIsNoneOfTheFour) {
  const Verdict run = tampered(
      [](const HelperDelegate& delegate) { delegate.fields().statusMenuItem->setTitle("scribbled"); });
  EXPECT_NE(run.failure.value_or("none").find("the display is one of the four states"), std::string::npos);
}

TEST(Simulation, SeesADownloadOfNothing) {
  const Verdict run = tampered([](const HelperDelegate& delegate) {
    delegate.fields().downloaderWindow->form().startButton.setEnabled(true);
  });
  EXPECT_NE(run.failure.value_or("none").find("Download needs an analysed job"), std::string::npos);
}

TEST(Simulation, SeesARequestThatNobodyCalledFor) {
  const Verdict run = tampered(
      [](const HelperDelegate& delegate) { delegate.fields().downloaderWindow->present(std::nullopt); });
  EXPECT_NE(run.failure.value_or("none").find("the program did:"), std::string::npos);
}

TEST(Simulation, TellsTheTraceAndTheCommandThatReplaysIt) {
  const std::string text = report(5, runSeed(5));
  EXPECT_NE(text.find("seed 5"), std::string::npos);
  EXPECT_NE(text.find("the program is launched"), std::string::npos);
  EXPECT_NE(text.find("simulation --replay '"), std::string::npos);
}

Step numbered(std::size_t number) { return {Deed::click, static_cast<std::uint8_t>(number), 0}; }

TEST(Shrinking, KeepsTheStepsThatTheFailureNeeds) {
  Schedule schedule;
  for (std::size_t i = 0; i < 100; ++i) schedule.push_back(numbered(i));
  const Trial trial = [](const Schedule& tried) -> std::optional<Schedule> {
    const auto first = std::find(tried.begin(), tried.end(), numbered(17));
    const auto second = std::find(first, tried.end(), numbered(80));
    if (second == tried.end()) return std::nullopt;
    return Schedule(tried.begin(), std::next(second));
  };
  EXPECT_EQ(shrunk(schedule, trial), (Schedule{numbered(17), numbered(80)}));
}

TEST(Shrinking, ComesDownToNothingWhereTheLaunchAloneFails) {
  const Trial trial = [](const Schedule& tried) { return std::optional(tried); };
  EXPECT_TRUE(shrunk({numbered(1), numbered(2), numbered(3)}, trial).empty());
}

TEST(Schedule, IsReadAsItWasWritten) {
  const Schedule schedule = {{Deed::turn, 0, 255}, {Deed::endSession, 16, 1}};
  EXPECT_EQ(decode(encode(schedule)), schedule);
}

TEST(Schedule, RefusesWhatIsNone) {
  for (const char* text : {"A", "A000", "a0000", "Z0000", "A00g0", "A0000B"})
    EXPECT_FALSE(decode(text)) << text;
}

TEST(VirtualClock, CallsTheChosenOneOfTheTimersThatAreDue) {
  testing::VirtualClock clock;
  std::vector<int> called;
  const auto first = clock.callLater(1s, [&called] { called.push_back(1); });
  const auto second = clock.callLater(2s, [&called] { called.push_back(2); });
  const auto third = clock.callLater(3s, [&called] { called.push_back(3); });
  clock.block(2s);
  EXPECT_EQ(clock.nextDue(), 1s);
  EXPECT_TRUE(clock.runOneTimer(3));
  EXPECT_TRUE(clock.runOneTimer(3));
  EXPECT_FALSE(clock.runOneTimer(0));
  EXPECT_EQ(called, (std::vector{2, 1}));
  EXPECT_EQ(clock.nextDue(), 3s);
}

TEST(VirtualClock, RunsNothingWhileItIsBlocked) {
  testing::VirtualClock clock;
  bool isCalled = false;
  const auto timer = clock.callLater(1s, [&isCalled] { isCalled = true; });
  clock.post([&isCalled] { isCalled = true; });
  clock.block(5s);
  EXPECT_EQ(clock.now(), 5s);
  EXPECT_FALSE(isCalled);
}

}  // namespace
}  // namespace zunto::simulation
