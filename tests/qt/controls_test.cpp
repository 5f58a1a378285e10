#include <gtest/gtest.h>

#include <QAbstractItemModel>
#include <QAbstractItemView>
#include <QAccessible>
#include <QCheckBox>
#include <QComboBox>
#include <QImage>
#include <QLineEdit>
#include <QPushButton>
#include <QStyle>
#include <QStyleOptionButton>
#include <QStyledItemDelegate>
#include <QWheelEvent>
#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "platform/qt/qt_colors.h"
#include "platform/qt/qt_controls.h"
#include "platform/qt/qt_progress_bar.h"
#include "tests/qt/qt_world.h"

namespace zunto::testing {
namespace {

class QtControls : public QtTest {
 protected:
  template <class Native, class Model>
  Native& make(Model& model) {
    return dynamic_cast<Native&>(maker.make(model));
  }

  QtFocusKeeper focus;
  QWidget window;
  QtControlMaker maker{window, focus};
};

TEST_F(QtControls, FieldShowsTheModelsTextAndForwardsEdits) {
  TextField model("placeholder");
  model.setText("at first");
  auto& field = make<QLineEdit>(model);
  EXPECT_EQ(field.text().toStdString(), "at first");
  EXPECT_EQ(field.placeholderText().toStdString(), "placeholder");
  model.setText("Grüße — ●");
  EXPECT_EQ(fromQString(field.text()), "Grüße — ●");
  field.setCursorPosition(0);
  press(field, Qt::Key_X, Qt::NoModifier, QStringLiteral("x"));
  EXPECT_EQ(model.text(), "xGrüße — ●");
}

TEST_F(QtControls, FieldDoesNotEchoTheModelsOwnChanges) {
  TextField model("");
  make<QLineEdit>(model);
  int changes = 0;
  const auto subscription = model.observe([&changes] { ++changes; });
  model.setText("two\nlines");
  EXPECT_EQ(changes, 1);
  EXPECT_EQ(model.text(), "two\nlines");
}

TEST_F(QtControls, FieldKeepsItsCursorWhenTheTextIsEqual) {
  TextField model("");
  model.setText("https://media.example");
  auto& field = make<QLineEdit>(model);
  field.setCursorPosition(5);
  press(field, Qt::Key_Y, Qt::NoModifier, QStringLiteral("y"));
  EXPECT_EQ(field.cursorPosition(), 6);
  model.setText(model.text());
  model.setAccessibleName("another notice");
  EXPECT_EQ(field.cursorPosition(), 6);
}

TEST_F(QtControls, DisabledFieldTakesNoTextNotEvenFromAScreenReader) {
  TextField model("");
  model.setText("kept");
  auto& field = make<QLineEdit>(model);
  model.setEnabled(false);
  QAccessible::queryAccessibleInterface(&field)->setText(QAccessible::Value, QStringLiteral("changed"));
  EXPECT_EQ(field.text().toStdString(), "kept");
  EXPECT_EQ(model.text(), "kept");
}

TEST_F(QtControls, FieldTakesTextFromAScreenReader) {
  TextField model("");
  auto& field = make<QLineEdit>(model);
  QAccessible::queryAccessibleInterface(&field)->setText(QAccessible::Value, QStringLiteral("spoken"));
  EXPECT_EQ(model.text(), "spoken");
}

TEST_F(QtControls, FieldTakesALinkOfAHundredKilobytes) {
  TextField model("");
  auto& field = make<QLineEdit>(model);
  const std::string link = "https://media.example/" + std::string(100'000, 'a');
  model.setText(link);
  EXPECT_EQ(fromQString(field.text()), link);
}

TEST_F(QtControls, FieldHasAPlaceholderThatCanBeReadWhateverThePalette) {
  TextField model("placeholder");
  auto& field = make<QLineEdit>(model);
  const auto readability = [&field] {
    const QPalette& palette = field.palette();
    return contrast(palette.color(QPalette::PlaceholderText), palette.color(QPalette::Base));
  };
  EXPECT_GE(readability(), 4.5);
  QPalette dark(QColor(0x3a, 0x3a, 0x40), QColor(0x2a, 0x2a, 0x2e));
  dark.setColor(QPalette::Base, QColor(0x1e, 0x1e, 0x22));
  dark.setColor(QPalette::Text, Qt::white);
  dark.setColor(QPalette::PlaceholderText, Qt::black);
  window.setPalette(dark);
  EXPECT_GE(readability(), 4.5);
  EXPECT_LT(readability(), contrast(Qt::white, QColor(0x1e, 0x1e, 0x22)));
  window.setPalette(QPalette());
  EXPECT_GE(readability(), 4.5);
}

TEST_F(QtControls, FieldTakesPastedText) {
  TextField model("");
  auto& field = make<QLineEdit>(model);
  field.insert(QStringLiteral("https://media.example/v"));
  EXPECT_EQ(model.text(), "https://media.example/v");
}

TEST_F(QtControls, CheckBoxIsToggledByItsModelAlone) {
  CheckBox model("Permission & more", true);
  auto& box = make<QCheckBox>(model);
  EXPECT_TRUE(box.isChecked());
  EXPECT_EQ(box.text().toStdString(), "Permission && more");
  box.click();
  EXPECT_FALSE(model.isOn());
  EXPECT_FALSE(box.isChecked());
  model.setOn(true);
  EXPECT_TRUE(box.isChecked());
  box.toggle();
  EXPECT_FALSE(model.isOn());
}

/// What is drawn in a part of a control, without the ground around it.
QImage inkIn(QWidget& control, const QRect& part) {
  const QImage image = control.grab(part).toImage();
  QRect ink;
  for (int y = 0; y < image.height(); ++y) {
    for (int x = 0; x < image.width(); ++x) {
      if (image.pixel(x, y) != image.pixel(0, 0)) ink |= QRect(x, y, 1, 1);
    }
  }
  return image.copy(ink);
}

TEST_F(QtControls, TitlesRunInTheirOwnDirectionWhateverTheLayouts) {
  QFont font = window.font();  // whose letters look the same wherever they stand
  font.setHintingPreference(QFont::PreferFullHinting);
  window.setFont(font);
  CheckBox boxModel("Own it (or use it).", true);
  PushButton buttonModel("Download (now)…");
  PopUpButton popUpModel({"Chinese (machine)."});
  const auto parts = [](QWidget& control) {
    QStyleOptionButton option;
    option.initFrom(&control);
    if (qobject_cast<QCheckBox*>(&control) == nullptr) return control.rect().adjusted(6, 3, -6, -3);
    return control.style()->subElementRect(QStyle::SE_CheckBoxContents, &option, &control);
  };
  for (QWidget* each : {&maker.make(boxModel), &maker.make(buttonModel)}) {
    each->resize(each->sizeHint());
    const QImage before = inkIn(*each, parts(*each));
    QApplication::setLayoutDirection(Qt::RightToLeft);
    EXPECT_EQ(inkIn(*each, parts(*each)), before) << each->metaObject()->className();
    QApplication::setLayoutDirection(Qt::LeftToRight);
  }
  // The arrow is on the other side, so only the title's place is compared.
  QWidget& popUp = maker.make(popUpModel);
  popUp.resize(popUp.sizeHint());
  constexpr int arrow = 22;
  const QImage before = inkIn(popUp, popUp.rect().adjusted(3, 4, -arrow, -4));
  QApplication::setLayoutDirection(Qt::RightToLeft);
  EXPECT_EQ(inkIn(popUp, popUp.rect().adjusted(arrow, 4, -3, -4)), before);
  QApplication::setLayoutDirection(Qt::LeftToRight);
}

TEST_F(QtControls, DisabledCheckBoxStaysAsItIs) {
  CheckBox model("Permission", true);
  auto& box = make<QCheckBox>(model);
  model.setEnabled(false);
  box.toggle();
  EXPECT_TRUE(model.isOn());
  EXPECT_TRUE(box.isChecked());
}

TEST_F(QtControls, ButtonForwardsClicksOnlyWhileItIsEnabled) {
  PushButton model("Analyze");
  int clicks = 0;
  model.setAction([&clicks] { ++clicks; });
  auto& button = make<QPushButton>(model);
  button.click();
  EXPECT_EQ(clicks, 1);
  model.setEnabled(false);
  EXPECT_FALSE(button.isEnabled());
  button.click();
  press(button, Qt::Key_Space);
  EXPECT_EQ(clicks, 1);
}

TEST_F(QtControls, FocusedButtonIsPressedByReturnAndBySpace) {
  PushButton model("Paste");
  int clicks = 0;
  model.setAction([&clicks] { ++clicks; });
  auto& button = make<QPushButton>(model);
  press(button, Qt::Key_Return);
  press(button, Qt::Key_Space);
  EXPECT_EQ(clicks, 2);
}

TEST_F(QtControls, PopUpKeepsEqualTitlesApart) {
  PopUpButton model({"English", "English", "English"});
  int actions = 0;
  model.setAction([&actions] { ++actions; });
  auto& popUp = make<QComboBox>(model);
  EXPECT_EQ(popUp.count(), 3);
  press(popUp, Qt::Key_Down);
  press(popUp, Qt::Key_Down);
  EXPECT_EQ(model.selectedIndex(), 2U);
  EXPECT_EQ(actions, 2);
  model.selectIndex(1);
  EXPECT_EQ(popUp.currentIndex(), 1);
  EXPECT_EQ(actions, 2);
}

TEST_F(QtControls, PopUpSelectsTheFirstItemOfANewList) {
  PopUpButton model({"Analyze first"});
  auto& popUp = make<QComboBox>(model);
  model.setItems({});
  EXPECT_EQ(popUp.count(), 0);
  EXPECT_EQ(popUp.currentIndex(), -1);
  model.setItems({"1080p", "720p"});
  EXPECT_EQ(popUp.count(), 2);
  EXPECT_EQ(popUp.currentText().toStdString(), "1080p");
}

TEST_F(QtControls, PopUpFillsItsListAndTellsItsSelectionOnceForEachChange) {
  PopUpButton model({"Analyze first"});
  auto& popUp = make<QComboBox>(model);
  int fillings = 0;
  std::vector<int> told;  // Qt tells screen readers of a new value where it sends this signal
  QObject::connect(popUp.model(), &QAbstractItemModel::modelReset, [&fillings] { ++fillings; });
  QObject::connect(&popUp, &QComboBox::currentIndexChanged, [&told](int index) { told.push_back(index); });
  model.setItems({"English", "English", "German"}, 1);
  EXPECT_EQ(fillings, 1);
  EXPECT_EQ(told, (std::vector<int>{1}));
  model.setItems({"English", "English", "German"}, 2);
  model.setAccessibleName("another notice");
  EXPECT_EQ(fillings, 1);
  EXPECT_EQ(told, (std::vector<int>{1, 2}));
  EXPECT_EQ(popUp.currentIndex(), 2);
}

TEST_F(QtControls, PopUpMeasuresFewTitlesOfALongListToOpenIt) {
  struct CountingDelegate final : QStyledItemDelegate {
    [[nodiscard]] QSize sizeHint(const QStyleOptionViewItem& option,
                                 const QModelIndex& index) const override {
      ++measured;
      return QStyledItemDelegate::sizeHint(option, index);
    }
    mutable int measured = 0;
  };
  std::vector<std::string> titles;
  for (int i = 0; i < 5000; ++i) titles.push_back("English " + std::to_string(i));
  titles[2500] += std::string(100, 'w');
  PopUpButton model({"Analyze first"});
  auto& popUp = make<QComboBox>(model);
  CountingDelegate delegate;
  popUp.setItemDelegate(&delegate);
  window.show();
  const int narrow = popUp.sizeHint().width();
  model.setItems(titles, 4999);
  EXPECT_GT(popUp.sizeHint().width(), narrow);
  popUp.showPopup();
  runTurns();
  EXPECT_LT(delegate.measured, 200);
  EXPECT_GT(popUp.view()->width(), popUp.fontMetrics().horizontalAdvance(QString(30, QLatin1Char('w'))));
  press(*popUp.view(), Qt::Key_Up);
  press(*popUp.view(), Qt::Key_Return);
  EXPECT_EQ(model.selectedIndex(), 4998U);
}

TEST_F(QtControls, PopUpIsNotChangedByScrollingPastIt) {
  PopUpButton model({"one", "two"});
  auto& popUp = make<QComboBox>(model);
  QWheelEvent wheel({5, 5}, {5, 5}, {}, {0, -120}, Qt::NoButton, Qt::NoModifier, Qt::NoScrollPhase, false);
  QApplication::sendEvent(&popUp, &wheel);
  EXPECT_EQ(popUp.currentIndex(), 0);
  EXPECT_EQ(model.selectedIndex(), 0U);
}

TEST_F(QtControls, PopUpSpeaksItsNameAndItsSelection) {
  PopUpButton model({"1080p", "720p"});
  model.setAccessibleName("Quality");
  auto& popUp = make<QComboBox>(model);
  QAccessibleInterface* spoken = QAccessible::queryAccessibleInterface(&popUp);
  EXPECT_EQ(spoken->role(), QAccessible::ComboBox);
  EXPECT_EQ(spoken->text(QAccessible::Name).toStdString(), "Quality");
  EXPECT_EQ(spoken->text(QAccessible::Description).toStdString(), "1080p");
  model.selectIndex(1);
  EXPECT_EQ(spoken->text(QAccessible::Value).toStdString(), "720p");
  ASSERT_EQ(spoken->childCount(), 1);
  EXPECT_EQ(spoken->child(0)->role(), QAccessible::List);
  EXPECT_EQ(spoken->child(0)->childCount(), 2);
}

TEST_F(QtControls, BarIsFilledToFractionsOfPercents) {
  ProgressBar model;
  model.setValue(42.5);
  auto& bar = make<QtProgressBar>(model);
  EXPECT_EQ(bar.shownPercent(), 42.5);
  model.setValue(100);
  EXPECT_EQ(bar.shownPercent(), 100);
}

TEST_F(QtControls, BarGlidesOnAndJumpsBack) {
  ProgressBar model;
  auto& bar = make<QtProgressBar>(model);
  window.show();
  model.setValue(40);
  std::vector<double> shown{bar.shownPercent()};
  ASSERT_TRUE(runUntil([&] {
    shown.push_back(bar.shownPercent());
    return shown.back() == 40;
  }));
  EXPECT_LT(shown.front(), 20);
  EXPECT_TRUE(std::is_sorted(shown.begin(), shown.end()));
  EXPECT_TRUE(std::any_of(shown.begin(), shown.end(), [](double each) { return each > 0 && each < 40; }));
  model.setValue(80);
  model.setValue(0);
  EXPECT_EQ(bar.shownPercent(), 0);
  runTurns();
  EXPECT_EQ(bar.shownPercent(), 0);
}

TEST_F(QtControls, BarSpeaksPercents) {
  ProgressBar model;
  model.setAccessibleName("Progress");
  model.setValue(42.5);
  QAccessibleInterface* spoken = QAccessible::queryAccessibleInterface(&make<QtProgressBar>(model));
  EXPECT_EQ(spoken->role(), QAccessible::ProgressBar);
  EXPECT_EQ(fromQString(spoken->text(QAccessible::Name)), "Progress");
  EXPECT_EQ(fromQString(spoken->text(QAccessible::Value)), "42%");
  QAccessibleValueInterface* value = spoken->valueInterface();
  ASSERT_NE(value, nullptr);
  EXPECT_EQ(value->minimumValue().toDouble(), 0);
  EXPECT_EQ(value->maximumValue().toDouble(), 100);
  EXPECT_EQ(value->currentValue().toDouble(), 42.5);
  value->setCurrentValue(90.0);
  EXPECT_EQ(value->currentValue().toDouble(), 42.5);
}

TEST_F(QtControls, HiddenFromTheStartStaysHiddenWhenTheWindowIsShown) {
  PushButton model("Cancel");
  model.setHidden(true);
  auto& button = make<QPushButton>(model);
  window.show();
  EXPECT_FALSE(button.isVisible());
  model.setHidden(false);
  EXPECT_TRUE(button.isVisible());
}

TEST_F(QtControls, FocusStaysOnAControlThatIsDisabledForAWhile) {
  TextField fieldModel("");
  PopUpButton popUpModel({"one"});
  CheckBox checkModel("Permission", true);
  PushButton buttonModel("Paste");
  const std::vector<std::pair<Control*, QWidget*>> controls{{&fieldModel, &maker.make(fieldModel)},
                                                            {&popUpModel, &maker.make(popUpModel)},
                                                            {&checkModel, &maker.make(checkModel)},
                                                            {&buttonModel, &maker.make(buttonModel)}};
  window.show();
  window.activateWindow();
  ASSERT_TRUE(runUntil([this] { return window.isActiveWindow(); }));
  for (const auto& [model, widget] : controls) {
    widget->setFocus();
    model->setEnabled(false);
    EXPECT_EQ(window.focusWidget(), widget);
    model->setEnabled(true);
    EXPECT_TRUE(widget->hasFocus());
  }
}

TEST_F(QtControls, FocusIsBackOnAControlThatWasDisabledWhileItsWindowCameToTheFront) {
  TextField fieldModel("");
  CheckBox checkModel("Permission", true);
  auto& field = make<QLineEdit>(fieldModel);
  make<QCheckBox>(checkModel);
  window.show();
  window.activateWindow();
  ASSERT_TRUE(runUntil([this] { return window.isActiveWindow(); }));
  field.setFocus();
  fieldModel.setEnabled(false);
  QWidget other;
  other.show();
  other.activateWindow();
  ASSERT_TRUE(runUntil([&other] { return other.isActiveWindow(); }));
  other.hide();
  window.activateWindow();
  ASSERT_TRUE(runUntil([this] { return window.isActiveWindow(); }));
  fieldModel.setEnabled(true);
  EXPECT_TRUE(field.hasFocus());
}

TEST_F(QtControls, TabLeadsOnFromADisabledControl) {
  TextField fieldModel("");
  PushButton pasteModel("Paste");
  CheckBox checkModel("Permission", true);
  auto& field = make<QLineEdit>(fieldModel);
  make<QPushButton>(pasteModel);
  auto& check = make<QCheckBox>(checkModel);
  window.show();
  field.setFocus();
  fieldModel.setEnabled(false);
  pasteModel.setEnabled(false);
  press(field, Qt::Key_Tab);
  EXPECT_EQ(window.focusWidget(), &check);
}

TEST_F(QtControls, FocusMovesOnFromAHiddenControl) {
  PushButton cancelModel("Cancel");
  CheckBox checkModel("Permission", true);
  auto& cancel = make<QPushButton>(cancelModel);
  auto& check = make<QCheckBox>(checkModel);
  window.show();
  cancel.setFocus();
  cancelModel.setHidden(true);
  EXPECT_EQ(window.focusWidget(), &check);
}

TEST_F(QtControls, FocusStaysWhereTheUserHasMovedItMeanwhile) {
  TextField fieldModel("");
  CheckBox checkModel("Permission", true);
  PushButton otherModel("Other");
  auto& field = make<QLineEdit>(fieldModel);
  make<QCheckBox>(checkModel);
  auto& other = make<QPushButton>(otherModel);
  window.show();
  field.setFocus();
  fieldModel.setHidden(true);
  other.setFocus();
  fieldModel.setHidden(false);
  EXPECT_EQ(window.focusWidget(), &other);
}

TEST_F(QtControls, WidgetMayEndBeforeItsModelChangesAgain) {
  Label model("text");
  QWidget* label = &maker.make(model);
  const std::unique_ptr<QWidget> ended(label);
  model.setText("nobody looks");
}

}  // namespace
}  // namespace zunto::testing
