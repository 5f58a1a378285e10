#include "platform/model/controls.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <limits>
#include <string>
#include <vector>

namespace zunto {
namespace {

struct Notices {
  explicit Notices(Observable& model) : subscription(model.observe([this] { ++count; })) {}
  Notices(const Notices&) = delete;
  Notices& operator=(const Notices&) = delete;
  int count = 0;
  Observable::Subscription subscription;
};

TEST(ControlTest, IsEnabledAndShownAtFirst) {
  const TextField field("placeholder");
  EXPECT_TRUE(field.isEnabled());
  EXPECT_FALSE(field.isHidden());
}

TEST(ControlTest, NotifiesOncePerChangeOfItsFlagsAndName) {
  Label label("text");
  const Notices notices(label);
  label.setEnabled(false);
  label.setEnabled(false);
  label.setHidden(true);
  label.setHidden(true);
  label.setAccessibleName("name");
  label.setAccessibleName("name");
  EXPECT_EQ(notices.count, 3);
  EXPECT_EQ(label.accessibleName(), "name");
}

TEST(LabelTest, ShowsTheTextThatIsSet) {
  Label label("first");
  const Notices notices(label);
  label.setText("second");
  EXPECT_EQ(label.text(), "second");
  EXPECT_EQ(notices.count, 1);
}

TEST(TextFieldTest, TakesTheUsersEditAndNotifiesItOnce) {
  TextField field("placeholder");
  const Notices notices(field);
  field.userEdited("typed");
  field.userEdited("typed");
  EXPECT_EQ(field.text(), "typed");
  EXPECT_EQ(notices.count, 1);
  EXPECT_EQ(field.placeholder(), "placeholder");
}

TEST(TextFieldTest, IgnoresTheUserWhileDisabledOrHiddenButNotTheProgram) {
  TextField field("");
  field.setEnabled(false);
  field.userEdited("typed");
  EXPECT_EQ(field.text(), "");
  field.setText("set");
  EXPECT_EQ(field.text(), "set");
  field.setEnabled(true);
  field.setHidden(true);
  field.userEdited("typed");
  EXPECT_EQ(field.text(), "set");
}

TEST(TextFieldTest, HugsItsWidthWithPriority250AtFirst) {
  TextField field("");
  EXPECT_EQ(field.horizontalHugging(), 250);
  field.setHorizontalHugging(1);
  EXPECT_EQ(field.horizontalHugging(), 1);
}

TEST(CheckBoxTest, IsToggledByTheUser) {
  CheckBox box("title", true);
  EXPECT_EQ(box.title(), "title");
  box.userToggled();
  EXPECT_FALSE(box.isOn());
  box.userToggled();
  EXPECT_TRUE(box.isOn());
}

TEST(CheckBoxTest, IgnoresTheUserWhileDisabledOrHidden) {
  CheckBox box("title", true);
  box.setEnabled(false);
  box.userToggled();
  EXPECT_TRUE(box.isOn());
  box.setEnabled(true);
  box.setHidden(true);
  box.userToggled();
  EXPECT_TRUE(box.isOn());
  box.setOn(false);
  EXPECT_FALSE(box.isOn());
}

TEST(PushButtonTest, AClickRunsItsAction) {
  PushButton button("title", KeyEquivalent::returnKey);
  int presses = 0;
  button.userClicked();
  button.setAction([&] { ++presses; });
  button.userClicked();
  EXPECT_EQ(presses, 1);
  EXPECT_EQ(button.title(), "title");
  EXPECT_EQ(button.keyEquivalent(), KeyEquivalent::returnKey);
  EXPECT_EQ(PushButton("other").keyEquivalent(), KeyEquivalent::none);
}

TEST(PushButtonTest, IgnoresTheUserWhileDisabledOrHidden) {
  PushButton button("title");
  int presses = 0;
  button.setAction([&] { ++presses; });
  button.setEnabled(false);
  button.userClicked();
  button.setEnabled(true);
  button.setHidden(true);
  button.userClicked();
  EXPECT_EQ(presses, 0);
}

TEST(PopUpButtonTest, SelectsItsFirstItemAtFirst) {
  const PopUpButton popUp({"a", "b"});
  EXPECT_EQ(popUp.selectedIndex(), 0U);
  EXPECT_EQ(popUp.selectedTitle(), "a");
}

TEST(PopUpButtonTest, HasNoSelectionWithoutItems) {
  const PopUpButton popUp({});
  EXPECT_EQ(popUp.selectedIndex(), std::nullopt);
  EXPECT_EQ(popUp.selectedTitle(), std::nullopt);
}

TEST(PopUpButtonTest, SelectsTheFirstItemOfANewListUnlessAnotherIsGiven) {
  PopUpButton popUp({"old", "older"});
  popUp.selectIndex(1);
  popUp.setItems({"a", "b", "c"});
  EXPECT_EQ(popUp.titles(), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_EQ(popUp.selectedIndex(), 0U);
  popUp.setItems({"d", "e"}, 1);
  EXPECT_EQ(popUp.selectedTitle(), "e");
  popUp.setItems({"f", "g"}, 2);
  EXPECT_EQ(popUp.selectedIndex(), 0U);
}

TEST(PopUpButtonTest, HasNoSelectionOnceItsListIsEmpty) {
  PopUpButton popUp({"a"});
  popUp.setItems({});
  EXPECT_EQ(popUp.selectedIndex(), std::nullopt);
  EXPECT_EQ(popUp.selectedTitle(), std::nullopt);
}

TEST(PopUpButtonTest, KeepsEqualTitlesApart) {
  PopUpButton popUp({"same"});
  popUp.setItems({"same", "same"}, 1);
  EXPECT_EQ(popUp.titles(), (std::vector<std::string>{"same", "same"}));
  EXPECT_EQ(popUp.selectedIndex(), 1U);
}

TEST(PopUpButtonTest, IgnoresAnIndexOutsideItsList) {
  PopUpButton popUp({"a", "b"});
  int choices = 0;
  popUp.setAction([&] { ++choices; });
  popUp.selectIndex(2);
  popUp.userSelected(2);
  EXPECT_EQ(popUp.selectedIndex(), 0U);
  EXPECT_EQ(choices, 0);
}

TEST(PopUpButtonTest, RunsItsActionAfterTheUsersChoiceAlsoOfWhatIsSelected) {
  PopUpButton popUp({"a", "b"});
  std::vector<std::string> chosen;
  popUp.setAction([&] { chosen.push_back(*popUp.selectedTitle()); });
  popUp.userSelected(1);
  popUp.userSelected(1);
  EXPECT_EQ(chosen, (std::vector<std::string>{"b", "b"}));
}

TEST(PopUpButtonTest, RunsNoActionWhenTheProgramSelects) {
  PopUpButton popUp({"a", "b"});
  int choices = 0;
  popUp.setAction([&] { ++choices; });
  popUp.selectIndex(1);
  popUp.setItems({"c"});
  popUp.setItems({});
  EXPECT_EQ(choices, 0);
}

TEST(PopUpButtonTest, IgnoresTheUserWhileDisabledOrHidden) {
  PopUpButton popUp({"a", "b"});
  popUp.setEnabled(false);
  popUp.userSelected(1);
  EXPECT_EQ(popUp.selectedIndex(), 0U);
  popUp.setEnabled(true);
  popUp.setHidden(true);
  popUp.userSelected(1);
  EXPECT_EQ(popUp.selectedIndex(), 0U);
}

TEST(PopUpButtonTest, NotifiesEveryChangeOfItsListAndSelectionOnce) {
  PopUpButton popUp({"a"});
  const Notices notices(popUp);
  popUp.setItems({"a", "b", "b"}, 1);
  EXPECT_EQ(notices.count, 1);
  popUp.selectIndex(2);
  popUp.selectIndex(2);
  popUp.setItems({"a", "b", "b"}, 2);
  EXPECT_EQ(notices.count, 2);
  popUp.setItems({"a", "b", "b"});
  EXPECT_EQ(notices.count, 3);
  popUp.setItems({});
  popUp.setItems({});
  EXPECT_EQ(notices.count, 4);
}

TEST(PopUpButtonTest, ItsRevisionGrowsWithItsListAlone) {
  PopUpButton popUp({"a", "b"});
  const auto first = popUp.listRevision();
  popUp.selectIndex(1);
  popUp.setItems({"a", "b"});
  popUp.setHidden(true);
  EXPECT_EQ(popUp.listRevision(), first);
  popUp.setItems({"b", "a"});
  EXPECT_EQ(popUp.listRevision(), first + 1);
}

/// What a view reads in each notice: the titles and the selected one.
std::vector<std::string> statesNotified(PopUpButton& popUp, const std::function<void(PopUpButton&)>& change) {
  std::vector<std::string> states;
  const auto subscription = popUp.observe([&] {
    std::string state;
    for (const std::string& title : popUp.titles()) state += title + ' ';
    states.push_back(state + "> " + popUp.selectedTitle().value_or("none"));
  });
  change(popUp);
  return states;
}

using PopUpStates = std::vector<std::string>;

TEST(PopUpButtonTest, NotifiesAListWhenItsSelectionIsSetToo) {
  PopUpButton popUp({"a", "b"});
  EXPECT_EQ(statesNotified(popUp,
                           [](PopUpButton& changed) {
                             changed.setItems({"c", "d", "e"}, 2);
                           }),
            PopUpStates{"c d e > e"});
  EXPECT_EQ(statesNotified(popUp, [](PopUpButton& changed) { changed.setItems({"f"}); }),
            PopUpStates{"f > f"});
  EXPECT_EQ(statesNotified(popUp, [](PopUpButton& changed) { changed.setItems({}); }), PopUpStates{"> none"});
}

TEST(PopUpButtonTest, NotifiesAChoiceOfTheUserBeforeItsAction) {
  PopUpButton popUp({"a", "b"});
  popUp.setAction([&] { popUp.setItems({"c", "d"}); });
  EXPECT_EQ(statesNotified(popUp, [](PopUpButton& changed) { changed.userSelected(1); }),
            (PopUpStates{"a b > b", "c d > c"}));
}

TEST(ProgressBarTest, StandsAtZeroAtFirst) { EXPECT_EQ(ProgressBar().value(), 0); }

TEST(ProgressBarTest, KeepsWhatLiesWithinItsRange) {
  ProgressBar bar;
  bar.setValue(42.5);
  EXPECT_EQ(bar.value(), 42.5);
}

TEST(ProgressBarTest, TakesTheNearerEndForWhatLiesOutside) {
  ProgressBar bar;
  bar.setValue(100.1);
  EXPECT_EQ(bar.value(), 100);
  bar.setValue(-0.1);
  EXPECT_EQ(bar.value(), 0);
  bar.setValue(std::numeric_limits<double>::infinity());
  EXPECT_EQ(bar.value(), 100);
  bar.setValue(-std::numeric_limits<double>::infinity());
  EXPECT_EQ(bar.value(), 0);
}

TEST(ProgressBarTest, TakesZeroForWhatIsNotANumber) {
  ProgressBar bar;
  bar.setValue(50);
  bar.setValue(std::nan(""));
  EXPECT_EQ(bar.value(), 0);
}

}  // namespace
}  // namespace zunto
