#include "platform/model/status_item.h"

#include <gtest/gtest.h>

#include <memory>

namespace zunto {
namespace {

TEST(StatusItemTest, HasAButtonWithoutATitleAndNoMenuAtFirst) {
  const StatusItem item;
  EXPECT_TRUE(item.hasButton());
  EXPECT_EQ(item.buttonTitle(), "");
  EXPECT_EQ(item.menu(), nullptr);
}

TEST(StatusItemTest, NotifiesEachNewTitleAndMenuOnce) {
  StatusItem item;
  int notices = 0;
  const auto subscription = item.observe([&] { ++notices; });
  const auto menu = std::make_shared<Menu>();
  item.setButtonTitle("title");
  item.setButtonTitle("title");
  item.setMenu(menu);
  item.setMenu(menu);
  EXPECT_EQ(item.buttonTitle(), "title");
  EXPECT_EQ(item.menu(), menu);
  EXPECT_EQ(notices, 2);
}

TEST(StatusItemTest, WithoutAButtonATitleIsIgnored) {
  StatusItem item(StatusItem::Button::absent);
  int notices = 0;
  const auto subscription = item.observe([&] { ++notices; });
  item.setButtonTitle("title");
  EXPECT_FALSE(item.hasButton());
  EXPECT_EQ(item.buttonTitle(), "");
  EXPECT_EQ(notices, 0);
}

}  // namespace
}  // namespace zunto
