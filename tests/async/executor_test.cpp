#include "async/executor.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "async/callback_await.h"
#include "async/error.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto {
namespace {

using namespace std::chrono_literals;
using testing::VirtualClock;

using Journal = std::vector<std::string>;

Task<void> note(Journal& journal, std::string entry) {
  journal.push_back(std::move(entry));
  co_return;
}

/// Notes how each of `count` sleeps ended.
Task<void> sleepAndNote(const Executor& executor, std::chrono::nanoseconds duration, int count,
                        Journal& journal) {
  for (int i = 0; i < count; ++i) {
    try {
      co_await executor.sleep(duration);
      journal.emplace_back("slept");
    } catch (const Cancelled&) {
      journal.emplace_back("cancelled");
    }
  }
  journal.emplace_back("end");
}

struct ExecutorTest : ::testing::Test {
  VirtualClock clock;
  Journal journal;
  std::optional<Executor> executor{std::in_place, clock};
};

TEST_F(ExecutorTest, SpawnStartsATaskOnALaterTurnNeverInline) {
  executor->spawn(note(journal, "ran"));
  EXPECT_TRUE(journal.empty());
  clock.runTurns();
  EXPECT_EQ(journal, Journal{"ran"});
}

TEST_F(ExecutorTest, SpawnInsideATaskStartsTheNewOneOnALaterTurn) {
  executor->spawn([](Executor& loop, Journal& entries) -> Task<void> {
    loop.spawn(note(entries, "inner"));
    entries.emplace_back("outer goes on");
    co_return;
  }(*executor, journal));
  EXPECT_TRUE(clock.runOneTurn());
  EXPECT_EQ(journal, Journal{"outer goes on"});
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"outer goes on", "inner"}));
}

TEST_F(ExecutorTest, TasksAndTurnsStartFirstInFirstOut) {
  executor->spawn(note(journal, "1"));
  clock.post([this] { journal.emplace_back("2"); });
  executor->spawn(note(journal, "3"));
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"1", "2", "3"}));
}

TEST_F(ExecutorTest, ATaskWhoseHandleWasDroppedRunsOn) {
  { const TaskHandle dropped = executor->spawn(sleepAndNote(*executor, 1s, 1, journal)); }
  clock.advance(1s);
  EXPECT_EQ(journal, (Journal{"slept", "end"}));
}

TEST_F(ExecutorTest, AHandleIsDoneOnceItsTaskHasRunToItsEnd) {
  const TaskHandle handle = executor->spawn(sleepAndNote(*executor, 1s, 1, journal));
  EXPECT_FALSE(handle.isDone());
  clock.advance(999ms);
  EXPECT_FALSE(handle.isDone());
  clock.advance(1ms);
  EXPECT_TRUE(handle.isDone());
}

TEST_F(ExecutorTest, AHandleIsDoneOnceItsExecutorIsGone) {
  const TaskHandle handle = executor->spawn(sleepAndNote(*executor, 1s, 1, journal));
  executor.reset();
  EXPECT_TRUE(handle.isDone());
  handle.cancel();
  clock.runTurns();
  EXPECT_TRUE(journal.empty());
}

TEST_F(ExecutorTest, ASleepEndsNoEarlierThanItsDuration) {
  executor->spawn(sleepAndNote(*executor, 150ms, 2, journal));
  clock.advance(150ms - 1ns);
  EXPECT_TRUE(journal.empty());
  clock.advance(1ns);
  EXPECT_EQ(journal, Journal{"slept"});
  clock.advance(150ms);
  EXPECT_EQ(journal, (Journal{"slept", "slept", "end"}));
}

TEST_F(ExecutorTest, CancelOnlyMarksAndTheSuspendedAwaitEndsOnALaterTurn) {
  const TaskHandle handle = executor->spawn(sleepAndNote(*executor, 1s, 1, journal));
  clock.runTurns();

  handle.cancel();
  EXPECT_TRUE(journal.empty());
  clock.runTurns();

  EXPECT_EQ(journal, (Journal{"cancelled", "end"}));
  EXPECT_EQ(clock.now(), 0s);
}

TEST_F(ExecutorTest, ACancelledSleepLeavesNoTimerBehind) {
  const TaskHandle handle = executor->spawn(sleepAndNote(*executor, 1s, 1, journal));
  clock.runTurns();
  ASSERT_EQ(clock.pendingTimers(), 1U);
  handle.cancel();
  clock.runTurns();
  EXPECT_EQ(clock.pendingTimers(), 0U);
}

TEST_F(ExecutorTest, ATaskCancelledBeforeItsFirstTurnStillRuns) {
  const TaskHandle handle = executor->spawn([](Journal& entries) -> Task<void> {
    entries.emplace_back("started");
    entries.emplace_back(co_await isCancelled() ? "knows" : "does not know");
  }(journal));
  handle.cancel();
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"started", "knows"}));
}

TEST_F(ExecutorTest, EverySleepOfACancelledTaskEndsOnALaterTurnWithoutTimePassing) {
  const TaskHandle handle = executor->spawn(sleepAndNote(*executor, 1s, 3, journal));
  handle.cancel();
  EXPECT_TRUE(clock.runOneTurn());
  EXPECT_TRUE(journal.empty()) << "the first sleep ended inside the turn that reached it";
  EXPECT_EQ(clock.pendingTimers(), 0U);
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"cancelled", "cancelled", "cancelled", "end"}));
  EXPECT_EQ(clock.now(), 0s);
}

TEST_F(ExecutorTest, CancellingTwiceEndsOneAwaitOnce) {
  const TaskHandle handle = executor->spawn([](const Executor& loop, Journal& entries) -> Task<void> {
    try {
      co_await loop.sleep(1s);
    } catch (const Cancelled&) {
      entries.emplace_back("cancelled");
    }
    const int value = co_await awaitCallbackUncancellable<int>(
        [&loop](Completion<int> done) { return loop.clock().callLater(2s, [done] { done(7); }); });
    entries.emplace_back("got " + std::to_string(value));
  }(*executor, journal));
  clock.runTurns();
  handle.cancel();
  handle.cancel();
  clock.runTurns();
  handle.cancel();
  clock.runTurns();
  EXPECT_EQ(journal, Journal{"cancelled"});
  clock.advance(2s);
  EXPECT_EQ(journal, (Journal{"cancelled", "got 7"}));
}

TEST_F(ExecutorTest, CancellingATaskThatHasEndedDoesNothing) {
  const TaskHandle handle = executor->spawn(note(journal, "ran"));
  clock.runTurns();
  handle.cancel();
  clock.runTurns();
  EXPECT_EQ(journal, Journal{"ran"});
}

TEST_F(ExecutorTest, ACancellationIsInheritedByEveryNestedTask) {
  const TaskHandle handle = executor->spawn([](const Executor& loop, Journal& entries) -> Task<void> {
    const auto middle = [](const Executor& inner, Journal& log) -> Task<void> {
      co_await sleepAndNote(inner, 1s, 1, log);
      log.emplace_back(co_await isCancelled() ? "middle knows" : "middle does not know");
    };
    co_await middle(loop, entries);
    entries.emplace_back(co_await isCancelled() ? "outer knows" : "outer does not know");
  }(*executor, journal));
  clock.runTurns();
  handle.cancel();
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"cancelled", "end", "middle knows", "outer knows"}));
}

TEST_F(ExecutorTest, ATaskThatIsNotCancelledIsToldSoWithoutLosingItsTurn) {
  executor->spawn([](Journal& entries) -> Task<void> {
    entries.emplace_back(co_await isCancelled() ? "cancelled" : "not cancelled");
  }(journal));
  EXPECT_TRUE(clock.runOneTurn());
  EXPECT_EQ(journal, Journal{"not cancelled"});
}

TEST_F(ExecutorTest, CancellingOneTaskLeavesTheOthersAlone) {
  const TaskHandle first = executor->spawn(sleepAndNote(*executor, 1s, 1, journal));
  Journal other;
  const TaskHandle second = executor->spawn(sleepAndNote(*executor, 1s, 1, other));
  clock.runTurns();
  first.cancel();
  clock.advance(1s);
  EXPECT_EQ(journal, (Journal{"cancelled", "end"}));
  EXPECT_EQ(other, (Journal{"slept", "end"}));
}

TEST_F(ExecutorTest, ATaskThatSpawnsAnotherDoesNotPassItsCancellationOn) {
  Journal inner;
  const TaskHandle handle = executor->spawn([](Executor& loop, Journal& entries) -> Task<void> {
    loop.spawn(sleepAndNote(loop, 1s, 1, entries));
    co_return;
  }(*executor, inner));
  handle.cancel();
  clock.advance(1s);
  EXPECT_EQ(inner, (Journal{"slept", "end"}));
}

struct NotesItsEnd {
  NotesItsEnd(Journal& entries, std::string text) : journal(entries), entry(std::move(text)) {}
  NotesItsEnd(const NotesItsEnd&) = delete;
  NotesItsEnd& operator=(const NotesItsEnd&) = delete;
  ~NotesItsEnd() { journal.push_back(entry); }
  Journal& journal;
  std::string entry;
};

Task<void> holdWhileSleeping(const Executor& executor, Journal& journal, std::string entry, int depth) {
  const NotesItsEnd held(journal, entry + std::to_string(depth));
  if (depth > 0) {
    co_await holdWhileSleeping(executor, journal, std::move(entry), depth - 1);
  } else {
    co_await executor.sleep(1s);
  }
  journal.emplace_back("resumed");
}

TEST_F(ExecutorTest, TeardownFreesEverySuspendedFrameAndNothingResumes) {
  executor->spawn(holdWhileSleeping(*executor, journal, "freed ", 2));
  clock.runTurns();
  executor.reset();
  EXPECT_EQ(journal, (Journal{"freed 0", "freed 1", "freed 2"}));
  EXPECT_EQ(clock.pendingTimers(), 0U);
  clock.advance(10s);
  EXPECT_EQ(journal.size(), 3U);
}

TEST_F(ExecutorTest, TeardownFreesATaskThatHasNotStartedAndItsTurnDoesNothing) {
  auto argument = std::make_shared<int>(1);
  const std::weak_ptr<int> weak = argument;
  executor->spawn([](std::shared_ptr<int>, Journal& entries) -> Task<void> {
    entries.emplace_back("ran");
    co_return;
  }(std::move(argument), journal));
  executor.reset();
  EXPECT_TRUE(weak.expired());
  clock.runTurns();
  EXPECT_TRUE(journal.empty());
}

TEST_F(ExecutorTest, TeardownDropsAWakeThatIsAlreadyPosted) {
  const TaskHandle handle = executor->spawn(sleepAndNote(*executor, 1s, 1, journal));
  clock.runTurns();
  handle.cancel();
  executor.reset();
  clock.runTurns();
  EXPECT_TRUE(journal.empty());
}

TEST_F(ExecutorTest, TeardownFreesATaskThatIsSpawnedWhileItFreesOthers) {
  struct SpawnsAtItsEnd {
    SpawnsAtItsEnd(Executor& loop, std::shared_ptr<int> held) : executor(loop), argument(std::move(held)) {}
    SpawnsAtItsEnd(const SpawnsAtItsEnd&) = delete;
    SpawnsAtItsEnd& operator=(const SpawnsAtItsEnd&) = delete;
    ~SpawnsAtItsEnd() {
      executor.spawn([](std::shared_ptr<int>) -> Task<void> { co_return; }(std::move(argument)));
    }
    Executor& executor;
    std::shared_ptr<int> argument;
  };
  auto argument = std::make_shared<int>(1);
  const std::weak_ptr<int> weak = argument;
  executor->spawn([](Executor& loop, std::shared_ptr<int> held) -> Task<void> {
    const SpawnsAtItsEnd guard(loop, std::move(held));
    co_await loop.sleep(1s);
  }(*executor, std::move(argument)));
  clock.runTurns();
  executor.reset();
  EXPECT_TRUE(weak.expired());
}

TEST_F(ExecutorTest, ManyTasksEndInTheOrderOfTheirTimers) {
  for (const int milliseconds : {30, 10, 20}) {
    executor->spawn([](const Executor& loop, int delay, Journal& entries) -> Task<void> {
      co_await loop.sleep(std::chrono::milliseconds(delay));
      entries.push_back(std::to_string(delay));
    }(*executor, milliseconds, journal));
  }
  clock.advance(1s);
  EXPECT_EQ(journal, (Journal{"10", "20", "30"}));
}

TEST_F(ExecutorTest, AThousandNestedTasksEnd) {
  struct Deep {
    static Task<int> sum(int depth) {
      if (depth == 0) co_return 0;
      const int below = co_await sum(depth - 1);
      co_return below + 1;
    }
  };
  int result = 0;
  executor->spawn([](int& out) -> Task<void> { out = co_await Deep::sum(1000); }(result));
  clock.runTurns();
  EXPECT_EQ(result, 1000);
}

using ExecutorDeathTest = ExecutorTest;

TEST_F(ExecutorDeathTest, AnExceptionThatLeavesARootTaskEndsTheProgramWithItsMessage) {
  EXPECT_DEATH(
      {
        executor->spawn([]() -> Task<void> {
          throw std::runtime_error("boom");
          co_return;
        }());
        clock.runTurns();
      },
      "zunto-helper: fatal error: a task failed: boom\n");
}

TEST_F(ExecutorDeathTest, ACancellationThatLeavesARootTaskEndsTheProgramToo) {
  EXPECT_DEATH(
      {
        const TaskHandle handle =
            executor->spawn([](const Executor& loop) -> Task<void> { co_await loop.sleep(1s); }(*executor));
        handle.cancel();
        clock.runTurns();
      },
      "a task failed: The operation was cancelled\\.\n");
}

TEST_F(ExecutorDeathTest, AnExceptionOfAnUnknownKindEndsTheProgramToo) {
  EXPECT_DEATH(
      {
        executor->spawn([]() -> Task<void> {
          throw 7;
          co_return;
        }());
        clock.runTurns();
      },
      "a task failed with an unknown exception\n");
}

}  // namespace
}  // namespace zunto
