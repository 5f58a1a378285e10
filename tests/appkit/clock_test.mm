// The run loop as a clock.
#include <gmock/gmock.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "backend_world.h"
#include "modal_user.h"
#include "platform/appkit/app_kit_dialogs.h"

namespace zunto::testing {
namespace {

using std::chrono_literals::operator""ms;

class AppKitClockTest : public AppKitTest {};

TEST_F(AppKitClockTest, RunsTurnsFirstInFirstOutAndNeverInsideThePost) {
  std::vector<int> order;
  for (int i = 0; i < 100; ++i) clock.post([&order, i] { order.push_back(i); });
  EXPECT_TRUE(order.empty());
  runTurns();
  ASSERT_EQ(order.size(), 100U);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST_F(AppKitClockTest, RunsTurnsOfOtherThreadsOnTheMainThread) {
  int ran = 0;
  bool allOnMain = true;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int j = 0; j < 250; ++j) {
        clock.post([&] {
          ++ran;
          allOnMain = allOnMain && [NSThread isMainThread];
        });
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_TRUE(runEventLoopUntil([&] { return ran == 1000; }));
  EXPECT_TRUE(allOnMain);
}

TEST_F(AppKitClockTest, CallsLaterNoEarlierThanAsked) {
  const auto start = clock.now();
  std::chrono::nanoseconds called{0};
  const auto timer = clock.callLater(50ms, [&] { called = clock.now(); });
  ASSERT_TRUE(runEventLoopUntil([&] { return called.count() != 0; }));
  EXPECT_GE(called - start, 50ms);
}

TEST_F(AppKitClockTest, NeverCallsInsideCallLater) {
  bool called = false;
  const auto timer = clock.callLater(-5ms, [&] { called = true; });
  EXPECT_FALSE(called);
  EXPECT_TRUE(runEventLoopUntil([&] { return called; }));
}

TEST_F(AppKitClockTest, CallsNothingAfterATimerIsDestroyed) {
  bool called = false;
  auto dropped = clock.callLater(1ms, [&] { called = true; });
  dropped.reset();
  bool later = false;
  const auto timer = clock.callLater(30ms, [&] { later = true; });
  ASSERT_TRUE(runEventLoopUntil([&] { return later; }));
  EXPECT_FALSE(called);
}

TEST_F(AppKitClockTest, LetsATimerBeDestroyedInItsOwnCall) {
  std::unique_ptr<Timer> timer;
  std::string seen;
  timer = clock.callLater(1ms, [&, text = std::string(100, 'x')] {
    timer.reset();
    seen = text;
  });
  ASSERT_TRUE(runEventLoopUntil([&] { return !seen.empty(); }));
  EXPECT_EQ(seen, std::string(100, 'x'));
}

TEST_F(AppKitClockTest, DropsWhatIsQueuedWhenItIsDestroyed) {
  bool ran = false;
  const auto held = std::make_shared<int>();
  {
    AppKitClock other;
    other.post([&ran, held] { ran = true; });
  }
  EXPECT_EQ(held.use_count(), 1);
  runTurns();
  EXPECT_FALSE(ran);
}

TEST_F(AppKitClockTest, GoesOnWithTurnsAndTimersWhileAnAlertStands) {
  ModalUser user;
  AppKitAlertPresenter alerts(clock);
  std::vector<std::string> events;
  bool timerFired = false;
  user.answerAlert("OK");
  user.setMayAnswer([&] { return timerFired; });
  alerts.showAlert({"Title", "Message", {"OK", "Show Log"}},
                   [&](std::size_t) { events.push_back("answered"); });
  clock.post([&] { events.push_back("turn"); });
  const auto timer = clock.callLater(60ms, [&] {
    events.push_back("timer");
    timerFired = true;
  });
  ASSERT_TRUE(runEventLoopUntil([&] { return !events.empty() && events.back() == "answered"; }));
  EXPECT_THAT(events, ::testing::UnorderedElementsAre("turn", "timer", "answered"));
}

}  // namespace
}  // namespace zunto::testing
