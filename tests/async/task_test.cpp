#include "async/task.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "async/error.h"
#include "async/executor.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto {
namespace {

using testing::VirtualClock;

struct TaskTest : ::testing::Test {
  VirtualClock clock;
  Executor executor{clock};
  std::vector<std::string> journal;

  using Journal = std::vector<std::string>;

  static Task<void> note(Journal& journal, std::string entry) {
    journal.push_back(std::move(entry));
    co_return;
  }

  static Task<int> answer(int value) { co_return value; }
};

struct OtherError : Error {
  using Error::Error;
};

TEST_F(TaskTest, IsLazyANeverAwaitedTaskNeverRuns) {
  {
    const Task<void> task = note(journal, "ran");
    clock.runTurns();
  }
  EXPECT_TRUE(journal.empty());
}

TEST_F(TaskTest, ANeverAwaitedTaskFreesItsArguments) {
  auto argument = std::make_shared<int>(1);
  const std::weak_ptr<int> weak = argument;
  {
    const Task<void> task = [](std::shared_ptr<int>) -> Task<void> { co_return; }(std::move(argument));
    EXPECT_FALSE(weak.expired());
  }
  EXPECT_TRUE(weak.expired());
}

TEST_F(TaskTest, AnAwaitedTaskRunsToItsEndInsideItsAwaitersTurn) {
  executor.spawn([](Journal& entries) -> Task<void> {
    entries.emplace_back("before");
    co_await note(entries, "awaited");
    entries.emplace_back("after");
  }(journal));
  clock.post([this] { journal.emplace_back("next turn"); });

  clock.runTurns();

  EXPECT_EQ(journal, (Journal{"before", "awaited", "after", "next turn"}));
}

TEST_F(TaskTest, CarriesItsResultToItsAwaiter) {
  int result = 0;
  executor.spawn([](int& out) -> Task<void> {
    const int first = co_await answer(40);
    const int second = co_await answer(2);
    out = first + second;
  }(result));
  clock.runTurns();
  EXPECT_EQ(result, 42);
}

TEST_F(TaskTest, CarriesAResultThatCanOnlyBeMoved) {
  std::unique_ptr<int> result;
  const auto make = [](int value) -> Task<std::unique_ptr<int>> { co_return std::make_unique<int>(value); };
  executor.spawn(
      [](auto maker, std::unique_ptr<int>& out) -> Task<void> { out = co_await maker(7); }(make, result));
  clock.runTurns();
  ASSERT_TRUE(result);
  EXPECT_EQ(*result, 7);
}

Task<void> failDeep(int depth) {
  if (depth == 0) throw OtherError("from the deepest task");
  co_await failDeep(depth - 1);
}

TEST_F(TaskTest, AnErrorPropagatesThroughNestedTasksWithItsTypeAndMessage) {
  executor.spawn([](Journal& entries) -> Task<void> {
    try {
      co_await failDeep(3);
    } catch (const OtherError& failure) {
      entries.emplace_back(failure.message());
    }
    entries.emplace_back("went on");
  }(journal));
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"from the deepest task", "went on"}));
}

TEST_F(TaskTest, AnErrorAfterASuspensionPropagatesTheSameWay) {
  executor.spawn([](const Executor& loop, Journal& entries) -> Task<void> {
    const auto sleepAndFail = [](const Executor& inner) -> Task<int> {
      co_await inner.sleep(std::chrono::seconds(1));
      throw OtherError("late");
    };
    try {
      (void)co_await sleepAndFail(loop);
    } catch (const Error& failure) {
      entries.emplace_back(failure.message());
    }
  }(executor, journal));
  clock.advance(std::chrono::seconds(1));
  EXPECT_EQ(journal, Journal{"late"});
}

TEST_F(TaskTest, AnErrorReleasesWhatTheFailedTaskHeld) {
  auto held = std::make_shared<int>(1);
  const std::weak_ptr<int> weak = held;
  bool wasFreedInHandler = false;
  executor.spawn(
      [](std::shared_ptr<int> argument, const std::weak_ptr<int>& observed, bool& wasFreed) -> Task<void> {
        const auto fail = [](std::shared_ptr<int>) -> Task<void> {
          throw OtherError("failed");
          co_return;
        };
        try {
          co_await fail(std::move(argument));
        } catch (const OtherError&) {
          wasFreed = observed.expired();
        }
      }(std::move(held), weak, wasFreedInHandler));
  clock.runTurns();
  EXPECT_TRUE(wasFreedInHandler);
}

TEST_F(TaskTest, AMovedTaskRunsOnceFromItsNewPlace) {
  executor.spawn([](Journal& entries) -> Task<void> {
    Task<void> original = note(entries, "ran");
    const Task<void> moved = std::move(original);
    co_await moved;
  }(journal));
  clock.runTurns();
  EXPECT_EQ(journal, Journal{"ran"});
}

TEST_F(TaskTest, AssigningAnotherTaskDestroysTheOneThatWasHeld) {
  auto argument = std::make_shared<int>(1);
  const std::weak_ptr<int> weak = argument;
  Task<void> task = [](std::shared_ptr<int>) -> Task<void> { co_return; }(std::move(argument));
  task = note(journal, "replacement");
  EXPECT_TRUE(weak.expired());
  executor.spawn(std::move(task));
  clock.runTurns();
  EXPECT_EQ(journal, Journal{"replacement"});
}

struct Owner {
  explicit Owner(std::vector<std::string>& entries) : journal(entries) {}
  Owner(const Owner&) = delete;
  Owner& operator=(const Owner&) = delete;
  ~Owner() { journal.emplace_back("owner freed"); }
  std::vector<std::string>& journal;

  Task<void> sleepAndNote(const Executor& executor) {
    struct AtEnd {
      explicit AtEnd(Owner& user) : owner(user) {}
      AtEnd(const AtEnd&) = delete;
      AtEnd& operator=(const AtEnd&) = delete;
      ~AtEnd() { owner.journal.emplace_back("frame freed"); }
      Owner& owner;
    };
    const AtEnd atEnd(*this);
    co_await executor.sleep(std::chrono::seconds(1));
    journal.emplace_back("woke");
  }
};

TEST_F(TaskTest, KeepingAliveHoldsItsOwnerUntilTheTaskHasEndedAndNoLonger) {
  auto owner = std::make_shared<Owner>(journal);
  Task<void> task = owner->sleepAndNote(executor);
  executor.spawn(keepingAlive(std::move(owner), std::move(task)));
  clock.runTurns();
  EXPECT_TRUE(journal.empty());

  clock.advance(std::chrono::seconds(1));

  EXPECT_EQ(journal, (Journal{"woke", "frame freed", "owner freed"}));
}

TEST_F(TaskTest, KeepingAliveHoldsItsOwnerUntilADestroyedTaskIsGone) {
  {
    Executor shortLived(clock);
    auto owner = std::make_shared<Owner>(journal);
    Task<void> task = owner->sleepAndNote(shortLived);
    shortLived.spawn(keepingAlive(std::move(owner), std::move(task)));
    clock.runTurns();
    EXPECT_TRUE(journal.empty());
  }
  EXPECT_EQ(journal, (Journal{"frame freed", "owner freed"}));
}

TEST_F(TaskTest, KeepingAliveIsLazyToo) {
  {
    auto owner = std::make_shared<Owner>(journal);
    Task<void> task = owner->sleepAndNote(executor);
    const Task<void> kept = keepingAlive(std::move(owner), std::move(task));
    clock.runTurns();
  }
  EXPECT_EQ(journal, Journal{"owner freed"});
}

}  // namespace
}  // namespace zunto
