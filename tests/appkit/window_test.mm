// What the native windows, controls and menus are made of, beyond what a user can tell.
#include "backend_world.h"
#include "platform/appkit/app_kit_status_bar.h"
#include "platform/appkit/app_kit_window_system.h"

namespace zunto::testing {
namespace {

/// A form with one control of each kind.
struct SmallForm {
  Label label{"Label"};
  Label wrapped{"Wrapped", {.color = TextColor::secondary, .wraps = true, .maximumLines = 2}};
  TextField field{"placeholder"};
  CheckBox box{"Box", false};
  PushButton button{"Go", KeyEquivalent::returnKey};
  PopUpButton popUp{{"one", "one", "two"}};
  ProgressBar bar;
  Window window{describe()};

  WindowSpec describe() {
    using std::ref;
    field.setAccessibleName("Field");
    popUp.setAccessibleName("Pop-up");
    bar.setAccessibleName("Progress");
    Stack rows{.spacing = 10,
               .items = {{ref(label)},
                         {ref(wrapped)},
                         {ref(field), ElementWidth::stack},
                         {ref(box)},
                         {ref(button)},
                         {ref(popUp)},
                         {ref(bar), ElementWidth::stack},
                         {Separator(), ElementWidth::stack}}};
    return {.title = "Small form",
            .contentSize = {400, 300},
            .minimumSize = {320, 240},
            .insets = {20, 20, 20, 20},
            .content = std::move(rows)};
  }
};

class AppKitWindowTest : public AppKitTest {
 protected:
  [[nodiscard]] static NSWindow* native() { return windowTitled(@"Small form"); }

  template <class Native>
  [[nodiscard]] static Native* find(Class type) {
    return static_cast<Native*>(findView(native(), [type](NSView* one) { return [one class] == type; }));
  }

  SmallForm form;
  AppKitWindowSystem system;
  std::unique_ptr<WindowView> view = system.makeView(form.window);
};

TEST_F(AppKitWindowTest, IsMadeAsTheModelSaysAndSurvivesItsClosing) {
  form.window.show();
  ASSERT_NE(native(), nil);
  EXPECT_EQ([native() styleMask],
            static_cast<NSUInteger>(NSWindowStyleMaskTitled | NSWindowStyleMaskClosable |
                                    NSWindowStyleMaskMiniaturizable | NSWindowStyleMaskResizable));
  EXPECT_EQ([native() minSize].width, 320);
  EXPECT_EQ([native() minSize].height, 240);
  EXPECT_EQ([native() backingType], NSBackingStoreBuffered);
  EXPECT_FALSE([native() isReleasedWhenClosed]);
  EXPECT_TRUE([native() autorecalculatesKeyViewLoop]);
}

TEST_F(AppKitWindowTest, IsShownOnlyWhenTheModelIs) {
  EXPECT_FALSE([native() isVisible]);
  form.window.show();
  EXPECT_TRUE([native() isVisible]);
  [native() performClose:nil];
  EXPECT_FALSE(form.window.isVisible());
  EXPECT_FALSE([native() isVisible]);
}

TEST_F(AppKitWindowTest, IsGoneWithItsView) {
  form.window.show();
  @autoreleasepool {
    view.reset();
  }
  runTurns();
  EXPECT_EQ(native(), nil);
}

TEST_F(AppKitWindowTest, LetsTheControlsOfAGoneViewDoNothing) {
  int clicks = 0;
  form.button.setAction([&] { ++clicks; });
  NSButton* button = [findButton(native(), "Go") retain];
  NSWindow* window = [native() retain];
  view.reset();
  [button performClick:nil];
  EXPECT_EQ(clicks, 0);
  EXPECT_EQ([button target], nil);
  [window release];
  [button release];
}

TEST_F(AppKitWindowTest, MirrorsFontColourAndWrapping) {
  NSTextField* wrapped = static_cast<NSTextField*>(findView(native(), [](NSView* one) {
    return [one isKindOfClass:[NSTextField class]] &&
           utf8([static_cast<NSTextField*>(one) stringValue]) == "Wrapped";
  }));
  EXPECT_EQ([wrapped maximumNumberOfLines], 2);
  EXPECT_TRUE([[wrapped textColor] isEqual:[NSColor secondaryLabelColor]]);
  EXPECT_EQ([[wrapped font] pointSize], [NSFont systemFontSize]);
}

TEST_F(AppKitWindowTest, NamesControlsWithoutATextForScreenReaders) {
  EXPECT_NE(findField(native(), "Field"), nil);
  EXPECT_NE(findPopUp(native(), "Pop-up"), nil);
  EXPECT_EQ(utf8([find<NSProgressIndicator>([NSProgressIndicator class]) accessibilityLabel]), "Progress");
}

TEST_F(AppKitWindowTest, ShowsADeterminateBarOfOneHundred) {
  auto* bar = find<NSProgressIndicator>([NSProgressIndicator class]);
  form.bar.setValue(37.5);
  EXPECT_FALSE([bar isIndeterminate]);
  EXPECT_EQ([bar minValue], 0);
  EXPECT_EQ([bar maxValue], 100);
  EXPECT_EQ([bar doubleValue], 37.5);
}

TEST_F(AppKitWindowTest, PressesTheDefaultButtonByReturn) {
  EXPECT_EQ(utf8([findButton(native(), "Go") keyEquivalent]), "\r");
}

TEST_F(AppKitWindowTest, PutsANativeControlBackWhereTheModelRefusesTheUser) {
  NSButton* box = findButton(native(), "Box");
  form.box.setEnabled(false);
  [box setEnabled:YES];  // as if a click were under way when the model changed
  [box performClick:nil];
  EXPECT_FALSE(form.box.isOn());
  EXPECT_EQ([box state], NSControlStateValueOff);

  NSPopUpButton* popUp = findPopUp(native(), "Pop-up");
  form.popUp.setEnabled(false);
  [popUp setEnabled:YES];
  [[popUp menu] performActionForItemAtIndex:2];
  EXPECT_EQ(form.popUp.selectedIndex(), 0U);
  EXPECT_EQ([popUp indexOfSelectedItem], 0);
}

TEST_F(AppKitWindowTest, KeepsItemsOfTheSameTitleApart) {
  NSPopUpButton* popUp = findPopUp(native(), "Pop-up");
  EXPECT_EQ([popUp numberOfItems], 3);
  [[popUp menu] performActionForItemAtIndex:1];
  EXPECT_EQ(form.popUp.selectedIndex(), 1U);
  form.popUp.setItems({});
  EXPECT_EQ([popUp numberOfItems], 0);
  form.popUp.setItems({"anew", "anew", "later"}, 1);
  EXPECT_EQ([popUp numberOfItems], 3);
  EXPECT_EQ([popUp indexOfSelectedItem], 1);
  EXPECT_EQ(utf8([popUp titleOfSelectedItem]), "anew");
}

TEST_F(AppKitWindowTest, KeepsTheEditOfTheUserWhenItComesBackAsState) {
  form.window.show();
  NSTextField* field = findField(native(), "Field");
  typeInto(field, @"typed");
  EXPECT_EQ(form.field.text(), "typed");
  EXPECT_NE([field currentEditor], nil);  // the edit goes on
  form.field.setText("from the program");
  EXPECT_EQ(utf8([field stringValue]), "from the program");
}

TEST_F(AppKitWindowTest, KnowsTheEditingCommandsWithoutAMainMenu) {
  form.window.show();
  [native() makeKeyAndOrderFront:nil];
  NSTextField* field = findField(native(), "Field");
  typeInto(field, @"old");
  putOnPasteboard(@"pasted");
  EXPECT_TRUE([native() performKeyEquivalent:keyPress(native(), @"a", NSEventModifierFlagCommand)]);
  EXPECT_TRUE([native() performKeyEquivalent:keyPress(native(), @"v", NSEventModifierFlagCommand)]);
  EXPECT_EQ(form.field.text(), "pasted");
  EXPECT_FALSE([native() performKeyEquivalent:keyPress(native(), @"v", 0)]);
  EXPECT_FALSE([native() performKeyEquivalent:keyPress(native(), @"y", NSEventModifierFlagCommand)]);
  EXPECT_TRUE([native() performKeyEquivalent:keyPress(native(), @"w", NSEventModifierFlagCommand)]);
  EXPECT_FALSE(form.window.isVisible());
}

class AppKitStatusBarTest : public AppKitTest {
 protected:
  AppKitStatusBar bar;
};

TEST_F(AppKitStatusBarTest, GivesItemsATargetOnlyWhereTheyDoSomething) {
  const auto item = bar.makeStatusItem();
  const auto menu = std::make_shared<Menu>();
  menu->addItem(std::make_shared<MenuItem>("Line"));
  menu->addItem(MenuItem::separator());
  int chosen = 0;
  menu->addItem(std::make_shared<MenuItem>(
      "Open", [&] { ++chosen; }, 'o'));
  item->setMenu(menu);

  NSMenu* native = [shownStatusItem() menu];
  EXPECT_TRUE([native autoenablesItems]);
  EXPECT_TRUE([static_cast<NSWindow*>([[native itemAtIndex:2] target]) worksWhenModal]);
  EXPECT_EQ([[native itemAtIndex:0] action], nullptr);
  EXPECT_EQ([[native itemAtIndex:0] target], nil);
  EXPECT_TRUE([[native itemAtIndex:1] isSeparatorItem]);
  EXPECT_EQ(utf8([[native itemAtIndex:2] keyEquivalent]), "o");
  EXPECT_EQ([[native itemAtIndex:2] keyEquivalentModifierMask],
            static_cast<NSUInteger>(NSEventModifierFlagCommand));
  [native performActionForItemAtIndex:2];
  EXPECT_EQ(chosen, 1);
}

TEST_F(AppKitStatusBarTest, HasNoTitleWhereTheSystemGivesNoButton) {
  setStatusItemsHaveButtons(false);
  const auto item = bar.makeStatusItem();
  item->setButtonTitle("Z");
  setStatusItemsHaveButtons(true);
  EXPECT_FALSE(item->hasButton());
  EXPECT_EQ([shownStatusItem() button], nil);
}

TEST_F(AppKitStatusBarTest, TakesTheItemOutOfTheBarWithItsModel) {
  auto item = bar.makeStatusItem();
  item->setMenu(std::make_shared<Menu>());
  EXPECT_NE(shownStatusItem(), nil);
  item.reset();
  EXPECT_EQ(shownStatusItem(), nil);
}

}  // namespace
}  // namespace zunto::testing
