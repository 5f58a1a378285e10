#include "platform/qt/qt_pop_up.h"

#include <QAbstractListModel>
#include <QAccessible>
#include <QAccessibleWidget>
#include <QKeyEvent>
#include <QListView>
#include <QScreen>
#include <QStyleOptionComboBox>
#include <QStylePainter>
#include <QWheelEvent>
#include <algorithm>
#include <memory>
#include <numeric>
#include <optional>
#include <string>
#include <utility>

#include "platform/qt/qt_colors.h"
#include "platform/qt/qt_text.h"

namespace zunto {

namespace {

constexpr int mostCharacters = 32;
constexpr int fewestCharacters = 7;

/// How many titles are measured. Measuring a text takes microseconds, which thousands of them make felt.
constexpr std::size_t mostMeasured = 64;

/// The rows of the longest titles: where there are more than are measured, those in bytes stand for the
/// widest.
std::vector<int> rowsOfLongest(const std::vector<std::string>& titles) {
  std::vector<int> rows(titles.size());
  std::iota(rows.begin(), rows.end(), 0);
  if (rows.size() <= mostMeasured) return rows;
  const auto end = rows.begin() + static_cast<std::ptrdiff_t>(mostMeasured);
  const auto length = [&titles](int row) { return titles[static_cast<std::size_t>(row)].size(); };
  std::nth_element(rows.begin(), end, rows.end(),
                   [&length](int left, int right) { return length(left) > length(right); });
  rows.erase(end, rows.end());
  return rows;
}

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

/// Titles for Qt to look at one by one: its own model makes an object of each.
class QtPopUp::TitleList final : public QAbstractListModel {
 public:
  /// In a new list Qt selects the first item that can be chosen and tells screen readers of it, so meanwhile
  /// only the `selected` one can be.
  void replace(std::vector<std::string> titles, int selected) {
    beginResetModel();
    titles_ = std::move(titles);
    onlyChoice_ = selected;
    endResetModel();
    onlyChoice_.reset();
  }

  [[nodiscard]] Qt::ItemFlags flags(const QModelIndex& index) const override {
    const bool canBeChosen = !onlyChoice_ || index.row() == *onlyChoice_;
    return canBeChosen ? QAbstractListModel::flags(index) : Qt::NoItemFlags;
  }

  [[nodiscard]] int rowCount(const QModelIndex& parent) const override {
    return parent.isValid() ? 0 : static_cast<int>(titles_.size());
  }
  [[nodiscard]] QVariant data(const QModelIndex& index, int role) const override {
    const bool isToolTip = role == Qt::ToolTipRole && areCut_;
    if (role != Qt::DisplayRole && role != Qt::EditRole && !isToolTip) return {};
    const QString title = toQString(titles_.at(static_cast<std::size_t>(index.row())));
    return isToolTip ? asToolTip(title) : title;
  }

  /// Whether the open list is too narrow for some of them.
  void setCut(bool areCut) { areCut_ = areCut; }

 private:
  std::vector<std::string> titles_;
  bool areCut_ = false;
  std::optional<int> onlyChoice_;
};

QtPopUp::QtPopUp(PopUpButton& model, QWidget* parent)
    : QtSteadyFocus(parent), model_(model), list_(std::make_unique<TitleList>()) {
  setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
  setMaxVisibleItems(20);
  setModel(list_.get());
  view()->setTextElideMode(Qt::ElideRight);
  // Else opening the list measures every title.
  if (auto* list = qobject_cast<QListView*>(view())) list->setUniformItemSizes(true);
  QObject::connect(this, &QComboBox::activated, this, [this](int index) {
    model_.userSelected(static_cast<std::size_t>(index));
    mirrorItems();
  });
  fillList();
  mirrorItems();
}

QtPopUp::~QtPopUp() = default;

void QtPopUp::mirrorItems() {
  const QString before = currentText();
  if (shownRevision_ != model_.listRevision()) fillList();
  if (currentIndex() != selectedRow()) setCurrentIndex(selectedRow());
  if (currentText() == before) return;
  QAccessibleEvent descriptionChange(this, QAccessible::DescriptionChanged);
  QAccessible::updateAccessibility(&descriptionChange);
}

int QtPopUp::selectedRow() const {
  const std::optional<std::size_t> selected = model_.selectedIndex();
  return selected ? static_cast<int>(*selected) : -1;
}

void QtPopUp::fillList() {
  if (view()->isVisible()) hidePopup();
  shownRevision_ = model_.listRevision();
  longestRows_ = rowsOfLongest(model_.titles());
  list_->replace(model_.titles(), selectedRow());
  updateGeometry();
}

int QtPopUp::widestTitle() const {
  int widest = 0;
  for (const int row : longestRows_) {
    widest = std::max(widest, fontMetrics().boundingRect(itemText(row)).width());
  }
  return widest;
}

void QtPopUp::initStyleOption(QStyleOptionComboBox* option) const {
  QtSteadyFocus::initStyleOption(option);
  // Else some styles open a menu, as high and as wide as the screen, whose titles end without an ellipsis.
  option->editable = true;
}

QStyleOptionComboBox QtPopUp::look() const {
  QStyleOptionComboBox option;
  initStyleOption(&option);
  option.editable = false;
  return option;
}

QSize QtPopUp::sizeForText(int width) const {
  const QStyleOptionComboBox option = look();
  constexpr int leastHeight = 14;
  constexpr int spareHeight = 2;
  const QSize text(width, std::max(fontMetrics().height(), leastHeight) + spareHeight);
  return style()->sizeFromContents(QStyle::CT_ComboBox, &option, text, this);
}

int QtPopUp::widthForCharacters(int count) const {
  return sizeForText(fontMetrics().averageCharWidth() * count).width();
}

QSize QtPopUp::sizeHint() const {
  const QSize natural = sizeForText(widestTitle());
  return {std::min(natural.width(), widthForCharacters(mostCharacters)), natural.height()};
}

QSize QtPopUp::minimumSizeHint() const {
  const QSize natural = sizeHint();
  return {std::min(natural.width(), widthForCharacters(fewestCharacters)), natural.height()};
}

void QtPopUp::showPopup() {
  const int screenWidth = screen()->availableGeometry().width();
  int widestItem = 0;
  for (const int row : longestRows_) {
    widestItem = std::max(widestItem, view()->sizeHintForIndex(list_->index(row)).width());
  }
  const int wanted = widestItem + 2 * view()->frameWidth() +
                     style()->pixelMetric(QStyle::PM_ScrollBarExtent, nullptr, view());
  const int widest = screenWidth * 2 / 3;
  view()->setMinimumWidth(std::min(wanted, widest));
  list_->setCut(wanted > widest);
  QComboBox::showPopup();
  // The one size of all items is as wide as the list was when it was taken, and only now is the list in
  // place.
  view()->doItemsLayout();
}

QString QtPopUp::shownTitle() const {
  const QStyleOptionComboBox option = look();
  const QRect field =
      style()->subControlRect(QStyle::CC_ComboBox, &option, QStyle::SC_ComboBoxEditField, this);
  return fontMetrics().elidedText(currentText(), Qt::ElideRight, field.width());
}

void QtPopUp::paintEvent(QPaintEvent*) {
  QStylePainter painter(this);
  QStyleOptionComboBox option = look();
  painter.drawComplexControl(QStyle::CC_ComboBox, option);
  option.currentText = shownTitle();
  painter.setLayoutDirection(directionOf(currentText()));
  painter.drawControl(QStyle::CE_ComboBoxLabel, option);
  if (!hasFocus()) drawStrongEdge(painter, rect(), palette());
}

bool QtPopUp::event(QEvent* event) {
  if (event->type() == QEvent::ToolTip) {
    setToolTip(shownTitle() == currentText() ? QString() : asToolTip(currentText()));
  }
  return QtSteadyFocus::event(event);
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
