#include "async/callback_await.h"

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "async/executor.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto {
namespace {

using namespace std::chrono_literals;
using testing::VirtualClock;
using Journal = std::vector<std::string>;

/// A backend's handle that says when it is dropped.
class Handle {
 public:
  explicit Handle(Journal& journal) : journal_(&journal) {}
  Handle(Handle&& other) noexcept : journal_(std::exchange(other.journal_, nullptr)) {}
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  Handle& operator=(Handle&&) = delete;
  ~Handle() {
    if (journal_) journal_->emplace_back("handle dropped");
  }

 private:
  Journal* journal_;
};

/// A backend whose callback the test holds.
struct Backend {
  explicit Backend(Journal& entries) : journal(entries) {}
  Journal& journal;
  std::vector<Completion<int>> callbacks;

  Handle start(Completion<int> done) {
    journal.emplace_back("started");
    callbacks.push_back(std::move(done));
    return Handle(journal);
  }
};

Task<void> awaitOnce(Backend& backend) {
  try {
    const int value = co_await awaitCallback<int>(
        [&backend](Completion<int> done) { return backend.start(std::move(done)); });
    backend.journal.emplace_back("got " + std::to_string(value));
  } catch (const Cancelled&) {
    backend.journal.emplace_back("cancelled");
  }
}

Task<void> awaitOnceUncancellable(Backend& backend) {
  const int value = co_await awaitCallbackUncancellable<int>(
      [&backend](Completion<int> done) { return backend.start(std::move(done)); });
  backend.journal.emplace_back("got " + std::to_string(value));
}

struct CallbackAwaitTest : ::testing::Test {
  VirtualClock clock;
  Journal journal;
  Backend backend{journal};
  std::optional<Executor> executor{std::in_place, clock};
};

TEST_F(CallbackAwaitTest, EndsInTheTurnInWhichTheBackendCallsBack) {
  executor->spawn(awaitOnce(backend));
  clock.runTurns();
  ASSERT_EQ(journal, Journal{"started"});

  backend.callbacks.at(0)(7);

  EXPECT_EQ(journal, (Journal{"started", "handle dropped", "got 7"}));
}

TEST_F(CallbackAwaitTest, DropsItsHandleWhenItEndsEvenWhileTheAwaitableItselfLivesOn) {
  executor->spawn([](Backend& world) -> Task<void> {
    auto waiting =
        awaitCallback<int>([&world](Completion<int> done) { return world.start(std::move(done)); });
    const int value = co_await waiting;
    world.journal.emplace_back("got " + std::to_string(value));
  }(backend));
  clock.runTurns();
  backend.callbacks.at(0)(7);
  EXPECT_EQ(journal, (Journal{"started", "handle dropped", "got 7"}));
}

TEST_F(CallbackAwaitTest, ACallbackInsideTheStartEndsTheAwaitOnALaterTurn) {
  executor->spawn([](Journal& entries) -> Task<void> {
    const int value = co_await awaitCallback<int>([&entries](Completion<int> done) {
      done(7);
      entries.emplace_back("start returned");
    });
    entries.emplace_back("got " + std::to_string(value));
  }(journal));
  EXPECT_TRUE(clock.runOneTurn());
  EXPECT_EQ(journal, Journal{"start returned"});
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"start returned", "got 7"}));
}

TEST_F(CallbackAwaitTest, OfTwoCallbacksInsideTheStartTheFirstCounts) {
  executor->spawn([](Journal& entries) -> Task<void> {
    const int value = co_await awaitCallback<int>([](const Completion<int>& done) {
      done(7);
      done(8);
    });
    entries.emplace_back("got " + std::to_string(value));
  }(journal));
  clock.runTurns();
  EXPECT_EQ(journal, Journal{"got 7"});
}

TEST_F(CallbackAwaitTest, ACallbackBetweenTheStartAndTheTurnThatEndsTheAwaitIsTooLate) {
  executor->spawn([](Backend& world) -> Task<void> {
    const int value = co_await awaitCallback<int>([&world](const Completion<int>& done) {
      done(7);
      return world.start(done);
    });
    world.journal.emplace_back("got " + std::to_string(value));
  }(backend));
  EXPECT_TRUE(clock.runOneTurn());
  backend.callbacks.at(0)(8);
  EXPECT_EQ(journal, Journal{"started"}) << "it must not end the await in its own turn either";
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"started", "handle dropped", "got 7"}));
}

TEST_F(CallbackAwaitTest, ACancellationEndsTheAwaitOnALaterTurnAfterDroppingTheHandle) {
  const TaskHandle handle = executor->spawn(awaitOnce(backend));
  clock.runTurns();
  handle.cancel();
  EXPECT_EQ(journal, Journal{"started"});
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"started", "handle dropped", "cancelled"}));
}

TEST_F(CallbackAwaitTest, ACallbackThatIsPostedBeforeTheCancellationWins) {
  const TaskHandle handle = executor->spawn(awaitOnce(backend));
  clock.runTurns();
  clock.post([this] { backend.callbacks.at(0)(7); });
  handle.cancel();
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"started", "handle dropped", "got 7"}));
}

TEST_F(CallbackAwaitTest, ACallbackThatIsPostedAfterTheCancellationIsTooLate) {
  const TaskHandle handle = executor->spawn(awaitOnce(backend));
  clock.runTurns();
  handle.cancel();
  clock.post([this] { backend.callbacks.at(0)(7); });
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"started", "handle dropped", "cancelled"}));
}

TEST_F(CallbackAwaitTest, ACallbackInsideTheStartWinsOverACancellationOfTheSameTurn) {
  std::optional<TaskHandle> handle;
  const auto body = [](std::optional<TaskHandle>& own, Journal& entries) -> Task<void> {
    try {
      const int value = co_await awaitCallback<int>([&own](Completion<int> done) {
        own->cancel();
        done(7);
      });
      entries.emplace_back("got " + std::to_string(value));
    } catch (const Cancelled&) {
      entries.emplace_back("cancelled");
    }
  };
  handle = executor->spawn(body(handle, journal));
  clock.runTurns();
  EXPECT_EQ(journal, Journal{"got 7"});
}

TEST_F(CallbackAwaitTest, AnAwaitInACancelledTaskStartsNothingAndEndsOnALaterTurn) {
  const TaskHandle handle = executor->spawn(awaitOnce(backend));
  handle.cancel();
  EXPECT_TRUE(clock.runOneTurn());
  EXPECT_TRUE(journal.empty());
  clock.runTurns();
  EXPECT_EQ(journal, Journal{"cancelled"});
}

TEST_F(CallbackAwaitTest, AWakeForAnAwaitThatHasEndedLeavesTheNextOneToItsOwn) {
  const TaskHandle handle = executor->spawn([](Backend& world) -> Task<void> {
    co_await awaitOnce(world);
    co_await awaitOnceUncancellable(world);
  }(backend));
  clock.runTurns();
  clock.post([this] { backend.callbacks.at(0)(1); });
  handle.cancel();
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"started", "handle dropped", "got 1", "started"}));
  backend.callbacks.at(1)(2);
  EXPECT_EQ(journal.back(), "got 2");
}

TEST_F(CallbackAwaitTest, ACancellationLeavesAnUncancellableAwaitAlone) {
  const TaskHandle handle = executor->spawn(awaitOnceUncancellable(backend));
  clock.runTurns();
  handle.cancel();
  clock.runTurns();
  EXPECT_EQ(journal, Journal{"started"});
  backend.callbacks.at(0)(7);
  EXPECT_EQ(journal.back(), "got 7");
}

TEST_F(CallbackAwaitTest, AnUncancellableAwaitInACancelledTaskStarts) {
  const TaskHandle handle = executor->spawn(awaitOnceUncancellable(backend));
  handle.cancel();
  clock.runTurns();
  EXPECT_EQ(journal, Journal{"started"});
  backend.callbacks.at(0)(7);
  EXPECT_EQ(journal.back(), "got 7");
}

TEST_F(CallbackAwaitTest, ACancellationDuringAnUncancellableAwaitEndsTheNextCancellableOne) {
  const TaskHandle handle = executor->spawn([](Backend& world) -> Task<void> {
    co_await awaitOnceUncancellable(world);
    co_await awaitOnce(world);
  }(backend));
  clock.runTurns();
  handle.cancel();
  clock.runTurns();
  backend.callbacks.at(0)(7);
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"started", "handle dropped", "got 7", "cancelled"}));
}

TEST_F(CallbackAwaitTest, ASecondCallOfTheCallbackDoesNothing) {
  executor->spawn(awaitOnce(backend));
  clock.runTurns();
  backend.callbacks.at(0)(7);
  backend.callbacks.at(0)(8);
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"started", "handle dropped", "got 7"}));
}

TEST_F(CallbackAwaitTest, ALateCallbackDoesNotEndALaterAwaitOfTheSameTask) {
  executor->spawn([](Backend& world) -> Task<void> {
    co_await awaitOnce(world);
    co_await awaitOnce(world);
  }(backend));
  clock.runTurns();
  backend.callbacks.at(0)(1);
  backend.callbacks.at(0)(2);
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"started", "handle dropped", "got 1", "started"}));
}

TEST_F(CallbackAwaitTest, TeardownDropsTheHandleAndALaterCallbackDoesNothing) {
  executor->spawn(awaitOnce(backend));
  clock.runTurns();
  executor.reset();
  EXPECT_EQ(journal, (Journal{"started", "handle dropped"}));
  backend.callbacks.at(0)(7);
  clock.runTurns();
  EXPECT_EQ(journal, (Journal{"started", "handle dropped"}));
}

TEST_F(CallbackAwaitTest, TeardownDropsAResumptionThatIsAlreadyPosted) {
  executor->spawn([](Journal& entries) -> Task<void> {
    (void)co_await awaitCallback<int>([](Completion<int> done) { done(7); });
    entries.emplace_back("resumed");
  }(journal));
  EXPECT_TRUE(clock.runOneTurn());
  executor.reset();
  clock.runTurns();
  EXPECT_TRUE(journal.empty());
}

TEST_F(CallbackAwaitTest, CarriesAResultThatCanOnlyBeMoved) {
  std::unique_ptr<int> result;
  executor->spawn([](std::unique_ptr<int>& out) -> Task<void> {
    out = co_await awaitCallback<std::unique_ptr<int>>(
        [](Completion<std::unique_ptr<int>> done) { done(std::make_unique<int>(7)); });
  }(result));
  clock.runTurns();
  ASSERT_TRUE(result);
  EXPECT_EQ(*result, 7);
}

TEST_F(CallbackAwaitTest, AnErrorOfTheStartIsTheAwaitsOwn) {
  executor->spawn([](Journal& entries) -> Task<void> {
    try {
      (void)co_await awaitCallback<int>(
          [](Completion<int>) -> Handle { throw std::runtime_error("refused"); });
    } catch (const std::runtime_error& failure) {
      entries.emplace_back(failure.what());
    }
  }(journal));
  clock.runTurns();
  EXPECT_EQ(journal, Journal{"refused"});
}

}  // namespace
}  // namespace zunto
