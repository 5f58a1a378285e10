#include "platform/model/window.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zunto {
namespace {

using Journal = std::vector<std::string>;

TEST(WindowTest, IsHiddenAtFirst) {
  const Window window({.title = "Title", .contentSize = {}, .minimumSize = {}, .insets = {}, .content = {}});
  EXPECT_FALSE(window.isVisible());
  EXPECT_EQ(window.spec().title, "Title");
}

TEST(WindowTest, EveryShowIsARequestOfItsOwnAlsoWhenItIsShownAlready) {
  Window window({});
  int notices = 0;
  const auto subscription = window.observe([&] { ++notices; });
  window.show();
  window.show();
  EXPECT_TRUE(window.isVisible());
  EXPECT_EQ(window.showRequests(), 2U);
  EXPECT_EQ(notices, 2);
}

TEST(WindowTest, EveryCentringIsARequestOfItsOwn) {
  Window window({});
  int notices = 0;
  const auto subscription = window.observe([&] { ++notices; });
  window.center();
  window.center();
  EXPECT_EQ(window.centerRequests(), 2U);
  EXPECT_EQ(notices, 2);
  EXPECT_FALSE(window.isVisible());
}

TEST(WindowTest, NotifiesARequestWhenItIsWhole) {
  Window window({});
  Journal states;
  const auto subscription = window.observe([&] {
    states.push_back(std::string(window.isVisible() ? "shown" : "hidden") + ", shows " +
                     std::to_string(window.showRequests()) + ", centrings " +
                     std::to_string(window.centerRequests()));
  });
  window.center();
  window.show();
  EXPECT_EQ(states, (Journal{"hidden, shows 0, centrings 1", "shown, shows 1, centrings 1"}));
}

TEST(WindowTest, NotifiesItsClosingOnceItIsHidden) {
  Window window({});
  window.show();
  Journal states;
  const auto subscription =
      window.observe([&] { states.emplace_back(window.isVisible() ? "shown" : "hidden"); });
  window.userClosed();
  EXPECT_EQ(states, Journal{"hidden"});
}

TEST(WindowTest, TellsBeforeItIsHiddenThatTheUserClosesIt) {
  Window window({});
  Journal journal;
  window.setWillClose([&] { journal.emplace_back(window.isVisible() ? "shown" : "hidden"); });
  window.show();
  window.userClosed();
  EXPECT_EQ(journal, Journal{"shown"});
  EXPECT_FALSE(window.isVisible());
}

TEST(WindowTest, ClosingAHiddenWindowTellsNobody) {
  Window window({});
  int closings = 0;
  window.setWillClose([&] { ++closings; });
  window.userClosed();
  EXPECT_EQ(closings, 0);
}

TEST(WindowTest, MayBeClosedWithoutAnybodyToTell) {
  Window window({});
  window.show();
  window.userClosed();
  EXPECT_FALSE(window.isVisible());
}

TEST(WindowTest, IsShownAgainAfterItWasClosed) {
  Window window({});
  window.show();
  window.userClosed();
  window.show();
  EXPECT_TRUE(window.isVisible());
}

}  // namespace
}  // namespace zunto
