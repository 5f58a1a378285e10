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

TEST(ObservableTest, AnObserverMayDestroyTheModel) {
  auto model = std::make_unique<Model>();
  int later = 0;
  const auto first = model->observe([&] { model.reset(); });
  const auto second = model->observe([&] { ++later; });
  model->setValue(1);
  EXPECT_FALSE(model);
  EXPECT_EQ(later, 1);
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
