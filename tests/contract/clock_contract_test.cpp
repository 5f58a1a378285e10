// What every clock keeps to, run on the virtual clock and on Qt's.
#include <gtest/gtest.h>

#include <QCoreApplication>
#include <QEventLoop>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/qt/qt_clock.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto {
namespace {

using namespace std::chrono_literals;

struct VirtualWorld {
  testing::VirtualClock clock;
  void let(std::chrono::nanoseconds pass) { clock.advance(pass); }
};

struct QtWorld {
  int argc = 0;
  QCoreApplication application{argc, nullptr};
  QtClock clock;
  void let(std::chrono::nanoseconds pass) {
    QEventLoop loop;
    const auto end = clock.callLater(pass, [&loop] { loop.quit(); });
    loop.exec();
  }
};

template <class World>
struct ClockContract : ::testing::Test {
  World world;
  Clock& clock = world.clock;
  std::vector<std::string> order;
  Clock::Turn note(const std::string& name) {
    return [this, name] { order.push_back(name); };
  }
};

using Worlds = ::testing::Types<VirtualWorld, QtWorld>;
TYPED_TEST_SUITE(ClockContract, Worlds);

using Names = std::vector<std::string>;

TYPED_TEST(ClockContract, RunsPostedTurnsInTheirOrderAndNeverInsidePost) {
  this->clock.post(this->note("first"));
  this->clock.post(this->note("second"));
  EXPECT_TRUE(this->order.empty());
  this->world.let(1ms);
  EXPECT_EQ(this->order, (Names{"first", "second"}));
}

TYPED_TEST(ClockContract, RunsATurnPostedInATurnAfterThoseThatWaited) {
  this->clock.post([this] {
    this->order.emplace_back("first");
    this->clock.post(this->note("third"));
  });
  this->clock.post(this->note("second"));
  this->world.let(1ms);
  EXPECT_EQ(this->order, (Names{"first", "second", "third"}));
}

TYPED_TEST(ClockContract, TakesTurnsFromOtherThreadsAndRunsThemOnTheMainThread) {
  std::thread::id ranOn;
  std::thread([this, &ranOn] { this->clock.post([&ranOn] { ranOn = std::this_thread::get_id(); }); }).join();
  this->world.let(1ms);
  EXPECT_EQ(ranOn, std::this_thread::get_id());
}

TYPED_TEST(ClockContract, CallsATimerOnceAndNoEarlierThanItsDelay) {
  const std::chrono::nanoseconds start = this->clock.now();
  std::vector<std::chrono::nanoseconds> calls;
  const auto timer = this->clock.callLater(12345us, [&] { calls.push_back(this->clock.now() - start); });
  this->world.let(80ms);
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_GE(calls[0], 12345us);
}

TYPED_TEST(ClockContract, NeverCallsATimerInsideCallLater) {
  const auto now = this->clock.callLater(0ns, this->note("zero"));
  const auto past = this->clock.callLater(-5s, this->note("negative"));
  EXPECT_TRUE(this->order.empty());
  this->world.let(5ms);
  EXPECT_EQ(this->order.size(), 2U);
}

TYPED_TEST(ClockContract, CallsTimersInTheOrderOfTheirTimes) {
  const auto late = this->clock.callLater(40ms, this->note("late"));
  const auto early = this->clock.callLater(10ms, this->note("early"));
  const auto middle = this->clock.callLater(25ms, this->note("middle"));
  this->world.let(80ms);
  EXPECT_EQ(this->order, (Names{"early", "middle", "late"}));
}

TYPED_TEST(ClockContract, CallsNothingAfterATimerIsDestroyed) {
  auto timer = this->clock.callLater(5ms, this->note("never"));
  timer.reset();
  this->world.let(30ms);
  EXPECT_TRUE(this->order.empty());
}

TYPED_TEST(ClockContract, LetsATimerBeDestroyedInItsOwnCallWhichRunsToItsEnd) {
  std::unique_ptr<Timer> timer;
  const auto held = std::make_shared<std::string>("held");
  timer = this->clock.callLater(1ms, [this, &timer, held] {
    timer.reset();
    this->order.push_back(*held);
  });
  this->world.let(20ms);
  EXPECT_EQ(this->order, (Names{"held"}));
}

TYPED_TEST(ClockContract, LetsOneTimerEndAnotherThatIsDueAtTheSameTime) {
  std::unique_ptr<Timer> second;
  const auto first = this->clock.callLater(5ms, [&second] { second.reset(); });
  second = this->clock.callLater(5ms, this->note("second"));
  this->world.let(30ms);
  EXPECT_TRUE(this->order.empty());
}

TYPED_TEST(ClockContract, TimeNeverGoesBack) {
  const std::chrono::nanoseconds before = this->clock.now();
  this->world.let(3ms);
  EXPECT_GE(this->clock.now(), before + 3ms);
}

TEST(VirtualClockEnd, DropsQueuedTurnsUnrun) {
  bool ran = false;
  const auto held = std::make_shared<int>(1);
  auto clock = std::make_unique<testing::VirtualClock>();
  clock->post([&ran, held] { ran = true; });
  clock.reset();
  EXPECT_FALSE(ran);
  EXPECT_EQ(held.use_count(), 1);
}

TEST(QtClockEnd, DropsQueuedTurnsUnrun) {
  int argc = 0;
  const QCoreApplication application(argc, nullptr);
  bool ran = false;
  const auto held = std::make_shared<int>(1);
  auto clock = std::make_unique<QtClock>();
  clock->post([&ran, held] { ran = true; });
  clock.reset();
  QCoreApplication::processEvents();
  EXPECT_FALSE(ran);
  EXPECT_EQ(held.use_count(), 1);
}

}  // namespace
}  // namespace zunto
