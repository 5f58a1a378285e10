// Where the form's controls stand, and what of their texts can be read, on large and small screens, at every
// scale, in every font, in both directions and in every state. No picture is compared: of styles and fonts
// only what they ask for counts.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <QAbstractButton>
#include <QAbstractItemView>
#include <QCheckBox>
#include <QComboBox>
#include <QHelpEvent>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QScrollBar>
#include <QStyle>
#include <QStyleOptionButton>
#include <set>
#include <sstream>
#include <string>

#include "platform/qt/qt_pop_up.h"
#include "platform/qt/qt_text_label.h"
#include "tests/qt/form_world.h"

namespace zunto::testing {
namespace {

struct Surroundings {
  const char* name;
  QSize screen;  ///< in its own pixels
  double scale;
};

const QSize smallScreen(1024, 600);
const QSize largeScreen(3840, 2160);

void PrintTo(const Surroundings& where, std::ostream* out) { *out << where.name; }

/// What is wrong with a window at this moment, one line for each fault.
class Faults {
 public:
  explicit Faults(const FormWindow& window) : window_(window), controls_(window.controls()) {
    for (const QWidget* each : controls_) {
      lookAtPlace(*each);
      if (const auto* label = dynamic_cast<const QtTextLabel*>(each)) lookAt(*label);
      if (const auto* popUp = dynamic_cast<const QtPopUp*>(each)) lookAt(*popUp);
      if (const auto* button = qobject_cast<const QAbstractButton*>(each)) lookAt(*button);
    }
    lookAtReach();
  }

  [[nodiscard]] std::string text() const { return found_.str(); }

 private:
  void report(const QWidget& control, const std::string& fault) {
    const QRect place = control.geometry();
    found_ << control.metaObject()->className() << " \"" << fromQString(textOf(control)) << "\" at "
           << place.x() << "," << place.y() << " of " << place.width() << "x" << place.height() << " "
           << fault << "\n";
  }

  static QString textOf(const QWidget& control) {
    if (!control.accessibleName().isEmpty()) return control.accessibleName();
    const auto* button = qobject_cast<const QAbstractButton*>(&control);
    return button == nullptr ? QString() : button->text();
  }

  void lookAtPlace(const QWidget& control) {
    const QWidget& content = *window_.area->widget();
    if (!content.rect().contains(control.geometry())) report(control, "leaves the content");
    for (const QWidget* other : controls_) {
      if (other != &control && other->geometry().intersects(control.geometry())) {
        report(control, "covers \"" + fromQString(textOf(*other)) + "\"");
      }
    }
  }

  /// What the pointer shows when it rests on the control.
  static QString toolTip(const QWidget& control) {
    QHelpEvent rest(QEvent::ToolTip, QPoint(1, 1), QPoint(1, 1));
    QApplication::sendEvent(&const_cast<QWidget&>(control), &rest);
    return control.toolTip();
  }

  /// A text that is cut ends in an ellipsis, and the pointer shows the whole of it.
  void requireWholeIn(const QWidget& control, const QString& shown, const QString& whole) {
    const auto words = [](QString text) { return text.remove(QLatin1Char(' ')); };
    if (words(shown) == words(whole)) return;
    if (!shown.endsWith(QChar(0x2026))) report(control, "is cut without an ellipsis");
    if (toolTip(control) != asToolTip(whole)) report(control, "shows a part, and the whole nowhere");
  }

  void lookAt(const QtTextLabel& label) {
    const QStringList lines = label.shownLines();
    for (const QString& line : lines) {
      if (label.fontMetrics().horizontalAdvance(line.trimmed()) > label.width()) {
        report(label, "is narrower than its text");
      }
    }
    if (lines.size() * label.fontMetrics().lineSpacing() > label.height()) {
      report(label, "is lower than its text");
    }
    requireWholeIn(label, lines.join(QLatin1Char(' ')), label.text());
  }

  void lookAt(const QtPopUp& popUp) {
    requireWholeIn(popUp, popUp.shownTitle(), popUp.currentText());
    requireHeight(popUp);
  }

  void lookAt(const QAbstractButton& button) {
    QStyleOptionButton option;
    option.initFrom(&button);
    option.text = button.text();
    const bool isCheck = qobject_cast<const QCheckBox*>(&button) != nullptr;
    const QRect room = button.style()->subElementRect(
        isCheck ? QStyle::SE_CheckBoxContents : QStyle::SE_PushButtonContents, &option, &button);
    if (button.fontMetrics().horizontalAdvance(button.text()) > room.width()) {
      report(button, "is narrower than its title");
    }
    requireHeight(button);
  }

  void requireHeight(const QWidget& control) {
    if (control.fontMetrics().height() > control.height()) report(control, "is lower than its text");
  }

  /// What does not fit can be scrolled to, to the last pixel.
  void lookAtReach() {
    const QSize content = window_.area->widget()->size();
    const QSize seen = window_.area->viewport()->size();
    const QScrollBar& across = *window_.area->horizontalScrollBar();
    const QScrollBar& down = *window_.area->verticalScrollBar();
    if (content.width() > seen.width() + across.maximum() ||
        content.height() > seen.height() + down.maximum()) {
      report(*window_.area, "cannot be scrolled to its end");
    }
    if ((across.maximum() > 0 && !across.isVisible()) || (down.maximum() > 0 && !down.isVisible())) {
      report(*window_.area, "has no bar to scroll it with");
    }
  }

  const FormWindow& window_;
  std::vector<QWidget*> controls_;
  std::ostringstream found_;
};

class FormLayout : public ::testing::WithParamInterface<Surroundings>, private TestScreen, public QtTest {
 protected:
  FormLayout() : TestScreen(GetParam().screen, GetParam().scale) {}

  static void setPoints(int points) {
    QFont font = QApplication::font();
    font.setPointSize(points);
    QApplication::setFont(font);
  }

  /// In the size it opens in, in its smallest one, and in a tile that asks nobody.
  void requireNoFaults(const FormWindow& window, const std::string& what) {
    window.native->resize(opened);
    runTurns();
    EXPECT_EQ(Faults(window).text(), "") << what << ", as it opens";
    window.native->resize(window.native->minimumSize());
    runTurns();
    EXPECT_EQ(Faults(window).text(), "") << what << ", at its smallest";
    window.native->setMinimumSize(0, 0);
    window.native->resize(400, 240);
    runTurns();
    EXPECT_EQ(Faults(window).text(), "") << what << ", as a tile";
  }

  void requireNoFaultsInAnyState(const std::string& what) {
    FormWindow window;
    window.native->setUpdatesEnabled(false);  // where things stand is found without drawing them
    window.open();
    opened = window.native->size();
    const QRect screen = window.native->screen()->availableGeometry();
    EXPECT_TRUE(screen.contains(window.native->frameGeometry())) << what << " leaves the screen";
    EXPECT_EQ(window.native->devicePixelRatio(), GetParam().scale);
    for (const FormState state : allFormStates) {
      show(window.form, state);
      requireNoFaults(window, what + ", " + nameOf(state));
    }
    fillToTheBrim(window.form);
    requireNoFaults(window, what + ", to the brim");
    chooseSubtitles(window.form);
    requireNoFaults(window, what + ", to the brim with subtitles");
  }

  QSize opened;
};

TEST_P(FormLayout, CoversAndCutsNothingAndReachesEverythingInEveryFontDirectionAndState) {
  for (const int points : {9, 13, 20}) {
    for (const Qt::LayoutDirection direction : {Qt::LeftToRight, Qt::RightToLeft}) {
      setPoints(points);
      QApplication::setLayoutDirection(direction);
      requireNoFaultsInAnyState(std::to_string(points) + " points" +
                                (direction == Qt::RightToLeft ? " to the left" : ""));
    }
  }
  QApplication::setLayoutDirection(Qt::LeftToRight);
}

TEST_P(FormLayout, OpensAsWideAsItsTextsAskInALargeFont) {
  setPoints(20);
  const FormWindow window;
  const QSize screen = window.native->screen()->availableGeometry().size();
  window.native->show();
  runTurns();
  EXPECT_EQ(window.area->horizontalScrollBar()->isVisible(), screen.width() < 900);
  const bool hasRoom = screen.width() > 1400;
  for (const QWidget* each : window.controls()) {
    const auto* label = dynamic_cast<const QtTextLabel*>(each);
    if (label == nullptr || !hasRoom) continue;
    EXPECT_EQ(label->shownLines().join(QString()).count(QChar(0x2026)), label->text().count(QChar(0x2026)))
        << fromQString(label->text());
  }
}

TEST_P(FormLayout, ShowsTheControlThatTheKeyboardReachesInATile) {
  setPoints(20);
  FormWindow window;
  window.open();
  show(window.form, FormState::finished);
  window.native->setMinimumSize(0, 0);
  window.native->resize(400, 240);
  runTurns();
  std::set<QWidget*> reached;
  for (QWidget* each = window.native->focusWidget(); reached.insert(each).second;
       each = window.native->focusWidget()) {
    const QRect sight = window.area->viewport()->rect();
    const QRect place(each->mapTo(window.area->viewport(), QPoint()), each->size());
    EXPECT_TRUE(sight.top() <= place.top() && place.bottom() <= sight.bottom() && sight.intersects(place))
        << each->metaObject()->className() << " from " << place.top() << " to " << place.bottom();
    press(*each, Qt::Key_Tab);
    runTurns();
  }
  EXPECT_EQ(reached.size(), 9U);
}

TEST_P(FormLayout, KeepsEveryRowInItsPlaceFromStateToState) {
  FormWindow window;
  window.open();
  const auto button = [&window](const char* title) {
    for (QPushButton* each : window.area->findChildren<QPushButton*>()) {
      if (each->text() == QString::fromUtf8(title)) return each;
    }
    throw std::runtime_error(title);
  };
  show(window.form, FormState::working);
  runTurns();
  const QRect download = button("Download…")->geometry();
  const QRect cancel = button("Cancel")->geometry();
  for (const FormState state : allFormStates) {
    show(window.form, state);
    runTurns();
    EXPECT_EQ(button("Download…")->geometry(), download) << nameOf(state);
    if (!button("Cancel")->isHidden()) {
      EXPECT_EQ(button("Cancel")->geometry(), cancel) << nameOf(state);
    }
    if (!button("Show Downloaded File")->isHidden()) {
      EXPECT_EQ(button("Show Downloaded File")->y(), download.y()) << nameOf(state);
    }
  }
}

TEST_P(FormLayout, OpensAListOf200TracksOnTheScreenAndScrollsIt) {
  FormWindow window;
  window.open();
  fillToTheBrim(window.form);
  chooseSubtitles(window.form);
  runTurns();
  for (QComboBox* popUp : window.area->findChildren<QComboBox*>()) {
    if (popUp->count() != 200) continue;
    popUp->showPopup();
    runTurns();
    const QAbstractItemView& list = *popUp->view();
    EXPECT_TRUE(popUp->screen()->availableGeometry().contains(list.window()->geometry()));
    EXPECT_LE(list.viewport()->height(), 20 * list.sizeHintForRow(0));
    EXPECT_GT(list.verticalScrollBar()->maximum(), 0);
    popUp->view()->setCurrentIndex(popUp->model()->index(199, 0));
    EXPECT_TRUE(list.viewport()->rect().intersects(list.visualRect(popUp->model()->index(199, 0))));
    EXPECT_EQ(fromQString(popUp->itemData(199, Qt::ToolTipRole).toString()),
              fromQString(asToolTip(popUp->itemText(199))));
    popUp->hidePopup();
    return;
  }
  FAIL() << "no list of 200 tracks";
}

INSTANTIATE_TEST_SUITE_P(Screens, FormLayout,
                         ::testing::Values(Surroundings{"Small", smallScreen, 1},
                                           Surroundings{"SmallAtOneAndAHalf", smallScreen, 1.5},
                                           Surroundings{"LargeAtTwo", largeScreen, 2},
                                           Surroundings{"LargeAtThree", largeScreen, 3}),
                         [](const auto& each) { return each.param.name; });

}  // namespace
}  // namespace zunto::testing
