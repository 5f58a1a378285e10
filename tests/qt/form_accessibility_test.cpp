// What people who hear the form, or see it badly, get of it: names, roles and states, news, and contrasts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAccessible>
#include <QAccessibleInterface>
#include <QCheckBox>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QProgressBar>
#include <QPushButton>
#include <QStyleOptionButton>
#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "platform/qt/qt_color_scheme.h"
#include "platform/qt/qt_colors.h"
#include "platform/qt/qt_progress_bar.h"
#include "tests/qt/form_world.h"
#include "tests/qt/private_bus.h"
#include "tests/qt/settings_portal.h"

namespace zunto::testing {
namespace {

using ::testing::ElementsAre;

class SpokenForm : public QtTest {
 protected:
  QtProgressBar& bar() { return dynamic_cast<QtProgressBar&>(*window.area->findChild<QProgressBar*>()); }

  FormWindow window;
};

class SpokenTree {
 public:
  explicit SpokenTree(QWidget& window) { walk(*QAccessible::queryAccessibleInterface(&window), 0); }

  std::vector<std::string> faults;
  std::map<QAccessible::Role, int> counts;

 private:
  static bool isContainer(QAccessible::Role role) {
    return std::set{QAccessible::Client,    QAccessible::Pane, QAccessible::Separator, QAccessible::MenuBar,
                    QAccessible::ScrollBar, QAccessible::List, QAccessible::Grouping}
               .count(role) != 0;
  }
  static bool isInteractive(QAccessible::Role role) {
    return std::set{QAccessible::Button, QAccessible::CheckBox, QAccessible::ComboBox,
                    QAccessible::EditableText}
               .count(role) != 0;
  }

  void walk(QAccessibleInterface& node, int depth) {
    const QAccessible::State state = node.state();
    if (depth > 20 || state.invisible) return;
    const QAccessible::Role role = node.role();
    const std::string name = fromQString(node.text(QAccessible::Name));
    const std::string what = std::to_string(role) + " \"" + name + "\"";
    ++counts[role];
    if (role == QAccessible::NoRole) faults.push_back(what + " has no role");
    if (!isContainer(role) && name.empty()) faults.push_back(what + " has no name");
    if (isInteractive(role) && !state.disabled && !state.focusable)
      faults.push_back(what + " takes no keyboard");
    if (role == QAccessible::CheckBox && !state.checkable) faults.push_back(what + " cannot be checked");
    if (const auto* control = qobject_cast<QWidget*>(node.object())) {
      if (control->isEnabled() == state.disabled) faults.push_back(what + " is not as enabled as it says");
    }
    for (int i = 0; i < node.childCount(); ++i) {
      if (QAccessibleInterface* child = node.child(i)) walk(*child, depth + 1);
    }
  }
};

TEST_F(SpokenForm, NamesEveryControlWithItsRoleAndStateInEveryState) {
  auto item = std::make_shared<StatusItem>();
  item->setButtonTitle("Z/UNTO");
  auto menu = std::make_shared<Menu>();
  menu->addItem(std::make_shared<MenuItem>("Open Downloader", [] {}));
  item->setMenu(menu);
  window.statusMenu.setItem(item);
  window.open();
  for (const FormState state : allFormStates) {
    show(window.form, state);
    runTurns();
    ASSERT_TRUE(runUntil([this] { return bar().shownPercent() == window.form.progress.value(); }));
    SpokenTree tree(*window.native);
    EXPECT_THAT(tree.faults, ElementsAre()) << nameOf(state);
    EXPECT_EQ(tree.counts[QAccessible::EditableText], 1);
    EXPECT_EQ(tree.counts[QAccessible::CheckBox], 1);
    EXPECT_EQ(tree.counts[QAccessible::ComboBox], 3);
    EXPECT_EQ(tree.counts[QAccessible::ProgressBar], 1);
    EXPECT_EQ(tree.counts[QAccessible::Notification], 1);
    EXPECT_GE(tree.counts[QAccessible::Button], 3);
    EXPECT_GE(tree.counts[QAccessible::StaticText], 7);
  }
}

TEST_F(SpokenForm, TellsOfProgressInTensOfPercent) {
  window.open();
  runTurns();
  QAccessibleValueInterface& spoken = *QAccessible::queryAccessibleInterface(&bar())->valueInterface();
  std::vector<int> told;  // Qt tells screen readers of a new value where it sends this signal
  QObject::connect(&bar(), &QProgressBar::valueChanged,
                   [&] { told.push_back(spoken.currentValue().toInt()); });
  for (int percent = 0; percent <= 100; ++percent) window.form.progress.setValue(percent + 0.4);
  EXPECT_THAT(told, ElementsAre(10, 20, 30, 40, 50, 60, 70, 80, 90, 100));
  ASSERT_TRUE(runUntil([this] { return bar().shownPercent() == 100; }));
  window.form.progress.setValue(0);
  EXPECT_THAT(told, ElementsAre(10, 20, 30, 40, 50, 60, 70, 80, 90, 100, 0));
}

struct Theme {
  const char* name;
  uint scheme;
  bool isStrong;
};

void PrintTo(const Theme& theme, std::ostream* out) { *out << theme.name; }

/// At three pixels to a point strokes have their full colour.
class Contrasts : public ::testing::WithParamInterface<Theme>, private TestScreen, public QtTest {
 protected:
  Contrasts() : TestScreen(QSize(3840, 2160), 3) {}

  void SetUp() override {
    portal.setScheme(GetParam().scheme);
    portal.set("org.freedesktop.appearance", "contrast", GetParam().isStrong ? 1U : 0U);
    ASSERT_TRUE(runUntil([] {
      const QPalette palette = QApplication::palette();
      return isDark(palette) == (GetParam().scheme == SettingsPortal::preferDark) &&
             isHighContrast(palette) == GetParam().isStrong;
    }));
  }

  /// The part of a control that its text stands on.
  static QRect textArea(const QWidget& control) {
    if (const auto* box = qobject_cast<const QCheckBox*>(&control)) {
      QStyleOptionButton option;
      option.initFrom(box);
      return box->style()->subElementRect(QStyle::SE_CheckBoxContents, &option, box);
    }
    if (qobject_cast<const QLabel*>(&control) != nullptr) return control.rect();
    constexpr int edge = 5;
    constexpr int arrow = 20;
    const bool isPopUp = qobject_cast<const QComboBox*>(&control) != nullptr;
    return control.rect().adjusted(edge, edge, isPopUp ? -arrow : -edge, -edge);
  }

  /// The strongest contrast with the first pixel, which is the ground's.
  static double strongest(const QImage& image) {
    const QColor ground = image.pixelColor(0, 0);
    double most = 1;
    QRgb last = image.pixel(0, 0);
    for (int y = 0; y < image.height(); ++y) {
      for (int x = 0; x < image.width(); ++x) {
        if (image.pixel(x, y) == last) continue;
        last = image.pixel(x, y);
        most = std::max(most, contrast(QColor::fromRgb(last), ground));
      }
    }
    return most;
  }

  static double leastFor(const QWidget& control) {
    const bool isHeldText = qobject_cast<const QLineEdit*>(&control) != nullptr;
    if (!control.isEnabled()) return isHeldText ? 4.5 : 3;
    return GetParam().isStrong ? 7 : 4.5;
  }

  PrivateBus bus;
  SettingsPortal portal{bus.connect()};
  QtColorScheme colors{bus.connect()};
};

TEST_P(Contrasts, OfEveryTextLetItBeRead) {
  FormWindow window;
  window.open();
  for (const FormState state : allFormStates) {
    show(window.form, state);
    runTurns();
    int texts = 0;
    for (QWidget* each : window.controls()) {
      const bool isText = qobject_cast<QLabel*>(each) || qobject_cast<QLineEdit*>(each) ||
                          qobject_cast<QAbstractButton*>(each) || qobject_cast<QComboBox*>(each);
      if (!isText) continue;
      ++texts;
      const double seen = strongest(each->grab(textArea(*each)).toImage());
      EXPECT_GE(seen, leastFor(*each)) << nameOf(state) << ": " << each->metaObject()->className() << " "
                                       << fromQString(each->accessibleName());
    }
    EXPECT_GE(texts, 15);
  }
}

class StrongContrasts : public Contrasts {};

TEST_P(StrongContrasts, OfEdgesLetControlsBeFound) {
  FormWindow window;
  show(window.form, FormState::working);
  window.form.permissionCheck.setOn(false);
  window.open();
  runTurns();
  int edges = 0;
  for (QWidget* each : window.controls()) {
    if (qobject_cast<QLabel*>(each) || each->metaObject() == &QWidget::staticMetaObject) continue;
    const bool isBox = qobject_cast<QCheckBox*>(each) != nullptr;
    QRect left(each->mapTo(window.native, QPoint()), QSize(isBox ? 16 : 4, each->height()));
    left.adjust(-2, 0, 0, 0);
    EXPECT_GE(strongest(window.native->grab(left).toImage()), 3)
        << each->metaObject()->className() << " " << fromQString(each->accessibleName());
    ++edges;
  }
  EXPECT_GE(edges, 9);
}

constexpr Theme strongLight{"StrongLight", SettingsPortal::preferLight, true};
constexpr Theme strongDark{"StrongDark", SettingsPortal::preferDark, true};

std::string nameOf(const ::testing::TestParamInfo<Theme>& each) { return each.param.name; }

INSTANTIATE_TEST_SUITE_P(Themes, Contrasts,
                         ::testing::Values(Theme{"Light", SettingsPortal::preferLight, false},
                                           Theme{"Dark", SettingsPortal::preferDark, false}, strongLight,
                                           strongDark),
                         [](const auto& each) { return nameOf(each); });
INSTANTIATE_TEST_SUITE_P(Themes, StrongContrasts, ::testing::Values(strongLight, strongDark),
                         [](const auto& each) { return nameOf(each); });

}  // namespace
}  // namespace zunto::testing
