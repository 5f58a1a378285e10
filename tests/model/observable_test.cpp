#include "platform/model/observable.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zunto {
namespace {

using Journal = std::vector<std::string>;

class Model final : public Observable {
 public:
  void setValue(int value) { assign(value_, value); }
  [[nodiscard]] int value() const { return value_; }

 private:
  int value_ = 0;
};

TEST(ObservableTest, AChangeIsNotifiedInsideTheCallThatChangedAfterTheStateIsSet) {
  Model model;
  int seen = -1;
  const auto subscription = model.observe([&] { seen = model.value(); });
  model.setValue(7);
  EXPECT_EQ(seen, 7);
}

TEST(ObservableTest, SettingWhatIsAlreadySetNotifiesNobody) {
  Model model;
  model.setValue(7);
  int notices = 0;
  const auto subscription = model.observe([&] { ++notices; });
  model.setValue(7);
  EXPECT_EQ(notices, 0);
}

TEST(ObservableTest, ObserversAreCalledInTheOrderOfTheirSubscription) {
  Model model;
  Journal journal;
  const auto first = model.observe([&] { journal.emplace_back("first"); });
  const auto second = model.observe([&] { journal.emplace_back("second"); });
  model.setValue(1);
  EXPECT_EQ(journal, (Journal{"first", "second"}));
}

TEST(ObservableTest, DestroyingASubscriptionEndsItsNotices) {
  Model model;
  int notices = 0;
  {
    const auto subscription = model.observe([&] { ++notices; });
    model.setValue(1);
  }
  model.setValue(2);
  EXPECT_EQ(notices, 1);
}

TEST(ObservableTest, AMovedSubscriptionGoesOnAndEndsOnce) {
  Model model;
  int notices = 0;
  {
    auto original = model.observe([&] { ++notices; });
    const auto moved = std::move(original);
    model.setValue(1);
    EXPECT_EQ(notices, 1);
  }
  model.setValue(2);
  EXPECT_EQ(notices, 1);
}

TEST(ObservableTest, AssigningOverASubscriptionEndsTheOneThatWasHeld) {
  Model model;
  int first = 0;
  int second = 0;
  auto subscription = model.observe([&] { ++first; });
  subscription = model.observe([&] { ++second; });
  model.setValue(1);
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 1);
}

TEST(ObservableTest, ASubscriptionThatWasAssignedEndsWhatItHoldsNow) {
  Model model;
  int first = 0;
  int second = 0;
  {
    auto subscription = model.observe([&] { ++first; });
    subscription = model.observe([&] { ++second; });
    model.setValue(1);
  }
  model.setValue(2);
  EXPECT_EQ(first, 0);
  EXPECT_EQ(second, 1);
}

TEST(ObservableTest, ASubscriptionThatWasAssignedFromAnotherModelEndsItsNotices) {
  Model one;
  Model other;
  int notices = 0;
  auto subscription = one.observe([] {});
  const auto kept = other.observe([&] { notices += 10; });
  subscription = other.observe([&] { ++notices; });
  subscription = {};
  other.setValue(1);
  EXPECT_EQ(notices, 10);
}

TEST(ObservableTest, ANewSubscriptionIsApartFromThoseThatGoOnAndFromThoseThatHaveEnded) {
  Model model;
  Journal journal;
  std::optional<Observable::Subscription> first = model.observe([&] { journal.emplace_back("first"); });
  const auto second = model.observe([&] { journal.emplace_back("second"); });
  first.reset();
  std::optional<Observable::Subscription> third = model.observe([&] { journal.emplace_back("third"); });
  model.setValue(1);
  EXPECT_EQ(journal, (Journal{"second", "third"}));
  third.reset();
  model.setValue(2);
  EXPECT_EQ(journal, (Journal{"second", "third", "second"}));
}

TEST(ObservableTest, ASubscriptionMayOutliveItsModel) {
  std::optional<Model> model(std::in_place);
  const auto subscription = model->observe([] {});
  model.reset();
  SUCCEED();
}

TEST(ObservableTest, AnObserverMayEndItsOwnSubscription) {
  Model model;
  int notices = 0;
  std::optional<Observable::Subscription> subscription;
  subscription = model.observe([&] {
    ++notices;
    subscription.reset();
  });
  model.setValue(1);
  model.setValue(2);
  EXPECT_EQ(notices, 1);
}

TEST(ObservableTest, AnObserverThatEndsItsOwnSubscriptionRunsToItsEnd) {
  Model model;
  auto held = std::make_shared<int>(7);
  const std::weak_ptr<int> ofTheObserver = held;
  bool wasAlive = false;
  std::optional<Observable::Subscription> subscription;
  subscription = model.observe([held = std::move(held), &subscription, &ofTheObserver, &wasAlive] {
    // The closure may be gone after the reset, if the model does not keep it: only what stands here is read.
    std::optional<Observable::Subscription>& own = subscription;
    const std::weak_ptr<int>& mark = ofTheObserver;
    bool& alive = wasAlive;
    own.reset();
    alive = !mark.expired();
  });
  model.setValue(1);
  EXPECT_TRUE(wasAlive);
  EXPECT_TRUE(ofTheObserver.expired());
}

TEST(ObservableTest, TheObserversBehindOneThatEndsItselfAndAnotherAreStillCalled) {
  Model model;
  Journal journal;
  std::vector<std::optional<Observable::Subscription>> all(5);
  const auto observe = [&](std::size_t index, const std::vector<std::size_t>& ends) {
    all.at(index) = model.observe([&journal, &all, index, ends] {
      journal.push_back(std::to_string(index));
      const std::vector<std::size_t> ended = ends;  // its own closure among them
      std::vector<std::optional<Observable::Subscription>>& every = all;
      for (const std::size_t other : ended) every.at(other).reset();
    });
  };
  observe(0, {});
  observe(1, {0, 1, 2});
  observe(2, {});
  observe(3, {});
  observe(4, {});
  model.setValue(1);
  EXPECT_EQ(journal, (Journal{"0", "1", "3", "4"}));
  journal.clear();
  model.setValue(2);
  EXPECT_EQ(journal, (Journal{"3", "4"}));
}

TEST(ObservableTest, AnObserverThatTakesAnEndedOnesPlaceInAChangeHearsTheNextOne) {
  Model model;
  Journal journal;
  std::optional<Observable::Subscription> replaced;
  const auto first = model.observe([&] {
    replaced.reset();
    replaced = model.observe([&] { journal.emplace_back("new"); });
  });
  replaced = model.observe([&] { journal.emplace_back("old"); });
  model.setValue(1);
  EXPECT_EQ(journal, Journal{});
}

TEST(ObservableTest, AnObserverThatAnotherOneEndedInTheSameChangeIsNotCalled) {
  Model model;
  int notices = 0;
  std::optional<Observable::Subscription> second;
  const auto first = model.observe([&] { second.reset(); });
  second = model.observe([&] { ++notices; });
  model.setValue(1);
  EXPECT_EQ(notices, 0);
}

TEST(ObservableTest, AnObserverThatSubscribesInAChangeHearsTheNextOne) {
  Model model;
  int notices = 0;
  std::vector<Observable::Subscription> later;
  const auto subscription = model.observe([&] {
    if (later.empty()) later.push_back(model.observe([&] { ++notices; }));
  });
  model.setValue(1);
  EXPECT_EQ(notices, 0);
  model.setValue(2);
  EXPECT_EQ(notices, 1);
}

TEST(ObservableTest, AnObserverMayDestroyTheModelAndThoseBehindItAreStillCalled) {
  auto model = std::make_unique<Model>();
  auto held = std::make_shared<int>(7);
  const std::weak_ptr<int> ofTheSecond = held;
  int later = 0;
  const auto first = model->observe([&] {
    model.reset();
    EXPECT_FALSE(ofTheSecond.expired());
  });
  const auto second = model->observe([held = std::move(held), &later] { later += *held; });
  model->setValue(1);
  EXPECT_FALSE(model);
  EXPECT_EQ(later, 7);
  EXPECT_TRUE(ofTheSecond.expired());
}

TEST(ObservableTest, AChangeInsideANoticeIsNotifiedToo) {
  Model model;
  std::vector<int> seen;
  const auto subscription = model.observe([&] {
    seen.push_back(model.value());
    if (model.value() == 1) model.setValue(2);
  });
  model.setValue(1);
  EXPECT_EQ(seen, (std::vector<int>{1, 2}));
}

}  // namespace
}  // namespace zunto
