#include "platform/qt/qt_pop_up.h"

#include <QAbstractItemView>
#include <QAccessible>
#include <QAccessibleWidget>
#include <QKeyEvent>
#include <QScreen>
#include <QStyleOptionComboBox>
#include <QStylePainter>
#include <QWheelEvent>
#include <algorithm>
#include <memory>

#include "platform/qt/qt_text.h"

namespace zunto {

namespace {

constexpr int mostCharacters = 32;
constexpr int fewestCharacters = 7;

class PopUpAccessible final : public QAccessibleWidget {
 public:
  explicit PopUpAccessible(QtPopUp& popUp) : QAccessibleWidget(&popUp, QAccessible::ComboBox) {}

  [[nodiscard]] int childCount() const override { return 1; }
  [[nodiscard]] QAccessibleInterface* child(int index) const override {
    return index == 0 ? QAccessible::queryAccessibleInterface(popUp().view()) : nullptr;
  }
  [[nodiscard]] QAccessibleInterface* childAt(int, int) const override { return nullptr; }
  [[nodiscard]] int indexOfChild(const QAccessibleInterface* child) const override {
    return popUp().view() == child->object() ? 0 : -1;
  }

  [[nodiscard]] QString text(QAccessible::Text kind) const override {
    if (kind == QAccessible::Name && !popUp().accessibleName().isEmpty()) return popUp().accessibleName();
    if (kind == QAccessible::Name || kind == QAccessible::Value || kind == QAccessible::Description) {
      return popUp().currentText();
    }
    return QAccessibleWidget::text(kind);
  }

  [[nodiscard]] QStringList actionNames() const override {
    return QStringList{showMenuAction(), pressAction()} + QAccessibleWidget::actionNames();
  }
  void doAction(const QString& name) override {
    if (name != showMenuAction() && name != pressAction()) {
      QAccessibleWidget::doAction(name);  // such as giving it the keyboard
    } else if (popUp().view()->isVisible()) {
      popUp().hidePopup();
    } else {
      popUp().showPopup();
    }
  }

 private:
  [[nodiscard]] QtPopUp& popUp() const { return *static_cast<QtPopUp*>(widget()); }
};

/// Qt takes ownership of what it answers.
QAccessibleInterface* makePopUpAccessible(const QString&, QObject* object) {
  auto* popUp = dynamic_cast<QtPopUp*>(object);
  return popUp == nullptr ? nullptr : std::make_unique<PopUpAccessible>(*popUp).release();
}

}  // namespace

void nameQtPopUpsForScreenReaders() { QAccessible::installFactory(makePopUpAccessible); }

QtPopUp::QtPopUp(PopUpButton& model, QWidget* parent) : QComboBox(parent), model_(model) {
  setSizeAdjustPolicy(QComboBox::AdjustToContents);
  setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
  setMaxVisibleItems(20);
  view()->setTextElideMode(Qt::ElideRight);
  QObject::connect(this, &QComboBox::activated, this, [this](int index) {
    model_.userSelected(static_cast<std::size_t>(index));
    mirrorItems();
  });
  mirrorItems();
}

void QtPopUp::mirrorItems() {
  const std::optional<std::size_t> selected = model_.selectedIndex();
  const int index = selected ? static_cast<int>(*selected) : -1;
  if (shownTitles_ != model_.titles()) {
    if (view()->isVisible()) hidePopup();
    shownTitles_ = model_.titles();
    QStringList titles;
    for (const std::string& title : shownTitles_) titles.append(toQString(title));
    clear();
    addItems(titles);
    updateGeometry();
  }
  if (index == currentIndex()) return;
  setCurrentIndex(index);
  QAccessibleEvent valueChange(this, QAccessible::DescriptionChanged);
  QAccessible::updateAccessibility(&valueChange);
}

int QtPopUp::widthForCharacters(int count) const {
  QStyleOptionComboBox option;
  initStyleOption(&option);
  const QFontMetrics metrics = fontMetrics();
  const QSize contents(metrics.averageCharWidth() * count, metrics.height());
  return style()->sizeFromContents(QStyle::CT_ComboBox, &option, contents, this).width();
}

QSize QtPopUp::sizeHint() const {
  const QSize natural = QComboBox::sizeHint();
  return {std::min(natural.width(), widthForCharacters(mostCharacters)), natural.height()};
}

QSize QtPopUp::minimumSizeHint() const {
  const QSize natural = sizeHint();
  return {std::min(natural.width(), widthForCharacters(fewestCharacters)), natural.height()};
}

void QtPopUp::showPopup() {
  const int screenWidth = screen()->availableGeometry().width();
  const int wanted = view()->sizeHintForColumn(0) + 2 * view()->frameWidth() +
                     style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, view());
  view()->setMinimumWidth(std::min(wanted, screenWidth * 2 / 3));
  QComboBox::showPopup();
}

void QtPopUp::paintEvent(QPaintEvent*) {
  QStylePainter painter(this);
  QStyleOptionComboBox option;
  initStyleOption(&option);
  painter.drawComplexControl(QStyle::CC_ComboBox, option);
  const QRect field =
      style()->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, this);
  option.currentText = fontMetrics().elidedText(option.currentText, Qt::ElideRight, field.width());
  painter.drawControl(QStyle::CE_ComboBoxLabel, option);
}

void QtPopUp::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
    // Qt would search the items for it; it is the window's key.
    event->ignore();
    return;
  }
  QComboBox::keyPressEvent(event);
}

void QtPopUp::wheelEvent(QWheelEvent* event) {
  // Who scrolls past does not mean to choose.
  event->ignore();
}

}  // namespace zunto
