#include "platform/model/menu.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>

namespace zunto {
namespace {

TEST(MenuItemTest, IsEnabledAtFirstWithItsTitleAndKey) {
  const MenuItem item(
      "Title", [] {}, 'o');
  EXPECT_EQ(item.title(), "Title");
  EXPECT_EQ(item.keyEquivalent(), 'o');
  EXPECT_TRUE(item.isEnabled());
  EXPECT_FALSE(item.isSeparator());
}

TEST(MenuItemTest, RunsItsActionWhenTheUserChoosesIt) {
  int choices = 0;
  const MenuItem item("Title", [&] { ++choices; });
  item.userChose();
  EXPECT_EQ(choices, 1);
}

TEST(MenuItemTest, IgnoresTheUserWhileDisabled) {
  int choices = 0;
  MenuItem item("Title", [&] { ++choices; });
  item.setEnabled(false);
  item.userChose();
  EXPECT_EQ(choices, 0);
}

TEST(MenuItemTest, WithoutAnActionAChoiceDoesNothing) {
  const MenuItem item("Title");
  item.userChose();
  EXPECT_EQ(item.keyEquivalent(), std::nullopt);
}

TEST(MenuItemTest, NotifiesEachChangeOfTitleAndEnabledStateOnce) {
  MenuItem item("Title");
  int notices = 0;
  const auto subscription = item.observe([&] { ++notices; });
  item.setTitle("Other");
  item.setTitle("Other");
  item.setEnabled(false);
  item.setEnabled(false);
  EXPECT_EQ(notices, 2);
}

TEST(MenuItemTest, ASeparatorHasNoTitleAndCannotBeChosen) {
  const std::shared_ptr<MenuItem> separator = MenuItem::separator();
  EXPECT_TRUE(separator->isSeparator());
  EXPECT_EQ(separator->title(), "");
  EXPECT_FALSE(separator->isEnabled());
}

TEST(MenuTest, KeepsItsItemsInOrder) {
  Menu menu;
  const auto first = std::make_shared<MenuItem>("first");
  const auto second = std::make_shared<MenuItem>("second");
  menu.addItem(first);
  menu.addItem(second);
  ASSERT_EQ(menu.items().size(), 2U);
  EXPECT_EQ(menu.items().at(0), first);
  EXPECT_EQ(menu.items().at(1), second);
}

}  // namespace
}  // namespace zunto
