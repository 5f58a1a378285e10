#include "platform/qt/qt_stack_layout.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <variant>

namespace zunto {

namespace {

int points(double value) { return static_cast<int>(std::lround(value)); }

using StackPointer = std::shared_ptr<const Stack>;

const TextField* textField(const StackItem& item) {
  const auto* field = std::get_if<std::reference_wrapper<TextField>>(&item.element);
  return field == nullptr ? nullptr : &field->get();
}

/// The lowest hugging of a row's fields: those that have it share the spare width.
std::optional<int> lowestHugging(const Stack& stack) {
  std::optional<int> lowest;
  for (const StackItem& item : stack.items) {
    if (const TextField* field = textField(item)) {
      lowest = std::min(lowest.value_or(std::numeric_limits<int>::max()), field->horizontalHugging());
    }
  }
  return lowest;
}

class StackBuilder {
 public:
  StackBuilder(const Stack& stack, QtControlMaker& maker, QtColumn& column)
      : stack_(stack), maker_(maker), column_(column), isRow_(stack.orientation == Orientation::horizontal) {}

  std::unique_ptr<QBoxLayout> build() {
    layout_ = std::make_unique<QBoxLayout>(isRow_ ? QBoxLayout::LeftToRight : QBoxLayout::TopToBottom);
    layout_->setContentsMargins(0, 0, 0, 0);
    layout_->setSpacing(points(stack_.spacing));
    const std::optional<int> lowest = isRow_ ? lowestHugging(stack_) : std::nullopt;
    for (const StackItem& item : stack_.items) {
      const TextField* field = textField(item);
      add(item, field != nullptr && lowest == field->horizontalHugging() ? 1 : 0);
    }
    // What no control takes stays behind the last one, or below it.
    if (!lowest) layout_->addStretch(isRow_ ? 1 : 0);
    return std::move(layout_);
  }

 private:
  void add(const StackItem& item, int stretch) {
    const bool isLabel = std::holds_alternative<std::reference_wrapper<Label>>(item.element);
    const Qt::Alignment where = alignment(item.width, isLabel);
    std::visit([&](const auto& element) { addElement(element, stretch, where); }, item.element);
    if (item.width == ElementWidth::column) column_.add(*layout_->itemAt(layout_->count() - 1)->widget());
  }

  template <class Model>
  void addElement(const std::reference_wrapper<Model>& model, int stretch, Qt::Alignment where) {
    layout_->addWidget(&maker_.make(model.get()), stretch, where);
  }
  void addElement(const Separator& separator, int stretch, Qt::Alignment where) {
    layout_->addWidget(&maker_.make(separator), stretch, where);
  }
  void addElement(const StackPointer& inner, int stretch, Qt::Alignment) {
    layout_->addLayout(makeStackLayout(*inner, maker_, column_).release(), stretch);
  }

  /// No alignment lets a control take the whole width; a label's text then stands at its leading end.
  [[nodiscard]] Qt::Alignment alignment(ElementWidth width, bool isLabel) const {
    const bool isCentered = stack_.alignment == StackAlignment::center;
    if (isRow_) return isCentered ? Qt::AlignVCenter : Qt::AlignTop;
    if (width == ElementWidth::stack) return {};
    if (isCentered) return Qt::AlignHCenter;
    return isLabel ? Qt::Alignment() : Qt::AlignLeft;
  }

  const Stack& stack_;
  QtControlMaker& maker_;
  QtColumn& column_;
  bool isRow_;
  std::unique_ptr<QBoxLayout> layout_;
};

}  // namespace

void QtColumn::align() const {
  int widest = 0;
  for (const QWidget* widget : widgets_) widest = std::max(widest, widget->sizeHint().width());
  for (QWidget* widget : widgets_) {
    if (widget->minimumWidth() != widest) widget->setMinimumWidth(widest);
  }
}

std::unique_ptr<QBoxLayout> makeStackLayout(const Stack& stack, QtControlMaker& maker, QtColumn& column) {
  return StackBuilder(stack, maker, column).build();
}

}  // namespace zunto
