#include "async/repeating_timer.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>
#include <vector>

#include "tests/fakes/virtual_clock.h"

namespace zunto {
namespace {

using namespace std::chrono_literals;
using testing::VirtualClock;

struct RepeatingTimerTest : ::testing::Test {
  VirtualClock clock;
  std::vector<std::chrono::nanoseconds> firings;
  std::function<void()> fire = [this] { firings.push_back(clock.now()); };
};

using Firings = std::vector<std::chrono::nanoseconds>;

TEST_F(RepeatingTimerTest, FiresFirstOneIntervalAfterItsMakingAndNotBefore) {
  clock.advance(3s);
  const RepeatingTimer timer(clock, 5s, fire);
  clock.advance(5s - 1ns);
  EXPECT_TRUE(firings.empty());
  clock.advance(1ns);
  EXPECT_EQ(firings, Firings{8s});
}

TEST_F(RepeatingTimerTest, FiresAtEveryInterval) {
  const RepeatingTimer timer(clock, 5s, fire);
  clock.advance(17s);
  EXPECT_EQ(firings, (Firings{5s, 10s, 15s}));
}

TEST_F(RepeatingTimerTest, IsValidUntilItIsInvalidated) {
  RepeatingTimer timer(clock, 5s, fire);
  EXPECT_TRUE(timer.isValid());
  clock.advance(5s);
  EXPECT_TRUE(timer.isValid());
  timer.invalidate();
  EXPECT_FALSE(timer.isValid());
}

TEST_F(RepeatingTimerTest, FiresNoMoreOnceInvalidatedHoweverOften) {
  RepeatingTimer timer(clock, 5s, fire);
  timer.invalidate();
  timer.invalidate();
  clock.advance(20s);
  EXPECT_TRUE(firings.empty());
  EXPECT_EQ(clock.pendingTimers(), 0U);
}

TEST_F(RepeatingTimerTest, FiresNoMoreOnceDestroyed) {
  { const RepeatingTimer timer(clock, 5s, fire); }
  clock.advance(20s);
  EXPECT_TRUE(firings.empty());
  EXPECT_EQ(clock.pendingTimers(), 0U);
}

TEST_F(RepeatingTimerTest, MayBeInvalidatedInsideItsOwnFiring) {
  std::optional<RepeatingTimer> timer;
  timer.emplace(clock, 5s, [&] {
    fire();
    timer->invalidate();
  });
  clock.advance(20s);
  EXPECT_EQ(firings, Firings{5s});
}

TEST_F(RepeatingTimerTest, MayBeDestroyedInsideItsOwnFiring) {
  auto held = std::make_shared<int>(7);
  const std::weak_ptr<int> weak = held;
  int seenAfterwards = 0;
  std::optional<RepeatingTimer> timer;
  timer.emplace(clock, 5s, [&, value = std::move(held)] {
    fire();
    timer.reset();
    seenAfterwards = *value;
  });
  clock.advance(20s);
  EXPECT_EQ(firings, Firings{5s});
  EXPECT_EQ(seenAfterwards, 7);
  EXPECT_TRUE(weak.expired());
}

TEST_F(RepeatingTimerTest, StaysWhereItWasMadeBecauseItsPendingCallPointsToIt) {
  static_assert(!std::is_move_constructible_v<RepeatingTimer>);
  static_assert(!std::is_copy_constructible_v<RepeatingTimer>);
}

/// A main loop that is as late as a test says.
class LateClock final : public Clock {
 public:
  [[nodiscard]] std::chrono::nanoseconds now() const override { return now_; }
  [[nodiscard]] std::unique_ptr<Timer> callLater(std::chrono::nanoseconds delay, Turn turn) override {
    due_ = now_ + delay;
    turn_ = std::move(turn);
    return std::make_unique<Timer>();
  }
  void post(Turn) override {}

  void fireAt(std::chrono::nanoseconds time) {
    now_ = time;
    const Turn turn = std::exchange(turn_, nullptr);
    turn();
  }
  [[nodiscard]] std::chrono::nanoseconds due() const { return due_; }

 private:
  std::chrono::nanoseconds now_{0};
  std::chrono::nanoseconds due_{0};
  Turn turn_;
};

TEST(RepeatingTimerOnALateLoopTest, KeepsToItsScheduleAfterALateFiring) {
  LateClock clock;
  const RepeatingTimer timer(clock, 5s, [] {});
  clock.fireAt(5s + 300ms);
  EXPECT_EQ(clock.due(), 10s);
}

TEST(RepeatingTimerOnALateLoopTest, SkipsTheFiringsThatTheLoopWasTooBusyToMake) {
  LateClock clock;
  int firings = 0;
  const RepeatingTimer timer(clock, 5s, [&] { ++firings; });
  clock.fireAt(17s);
  EXPECT_EQ(firings, 1);
  EXPECT_EQ(clock.due(), 20s);
}

TEST(RepeatingTimerOnALateLoopTest, LateByWholeIntervalsFiresOnceAndNextAnIntervalLater) {
  LateClock clock;
  int firings = 0;
  const RepeatingTimer timer(clock, 5s, [&] { ++firings; });
  clock.fireAt(10s);
  EXPECT_EQ(firings, 1);
  EXPECT_EQ(clock.due(), 15s);
  clock.fireAt(25s);
  EXPECT_EQ(firings, 2);
  EXPECT_EQ(clock.due(), 30s);
}

}  // namespace
}  // namespace zunto
