#include "platform/qt/qt_progress_bar.h"

#include <QAccessible>
#include <QAccessibleWidget>
#include <QStyle>
#include <QStyleOptionProgressBar>
#include <cmath>
#include <memory>

#include "platform/qt/qt_colors.h"
#include "platform/qt/qt_text.h"

namespace zunto {

namespace {

class ProgressBarAccessible final : public QAccessibleWidget, public QAccessibleValueInterface {
 public:
  explicit ProgressBarAccessible(QtProgressBar& bar)
      : QAccessibleWidget(&bar, QAccessible::ProgressBar), bar_(bar) {}

  [[nodiscard]] void* interface_cast(QAccessible::InterfaceType type) override {
    if (type == QAccessible::ValueInterface) return static_cast<QAccessibleValueInterface*>(this);
    return QAccessibleWidget::interface_cast(type);
  }
  [[nodiscard]] QString text(QAccessible::Text kind) const override {
    if (kind != QAccessible::Value) return QAccessibleWidget::text(kind);
    return QStringLiteral("%1%").arg(std::floor(bar_.percent()));
  }

  [[nodiscard]] QVariant currentValue() const override { return bar_.percent(); }
  [[nodiscard]] QVariant minimumValue() const override { return ProgressBar::minimum; }
  [[nodiscard]] QVariant maximumValue() const override { return ProgressBar::maximum; }
  [[nodiscard]] QVariant minimumStepSize() const override { return 0.0; }
  void setCurrentValue(const QVariant&) override {}

 private:
  const QtProgressBar& bar_;
};

/// Qt takes ownership of what it answers.
QAccessibleInterface* makeProgressBarAccessible(const QString&, QObject* object) {
  auto* bar = dynamic_cast<QtProgressBar*>(object);
  return bar == nullptr ? nullptr : std::make_unique<ProgressBarAccessible>(*bar).release();
}

}  // namespace

void countQtProgressBarsInPercent() { QAccessible::installFactory(makeProgressBarAccessible); }

QtProgressBar::QtProgressBar(ProgressBar& model, QWidget* parent) : QProgressBar(parent), model_(model) {
  setRange(static_cast<int>(ProgressBar::minimum), static_cast<int>(ProgressBar::maximum));
  setTextVisible(false);
  setAccessibleName(toQString(model.accessibleName()));
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  QObject::connect(&glide_, &QVariantAnimation::valueChanged, this,
                   [this](const QVariant& percent) { show(percent.toDouble()); });
}

void QtProgressBar::mirrorValue() {
  // Qt tells screen readers of each value that is set here, so it gets but those that are worth telling.
  constexpr int step = 10;
  setValue(static_cast<int>(percent()) / step * step);
  if (percent() == shownPercent_ && glide_.state() == QAbstractAnimation::Stopped) return;
  // Users who want no movement get none from their style.
  const int milliseconds = style()->styleHint(QStyle::SH_Widget_Animation_Duration, nullptr, this);
  const bool isProgress = percent() > shownPercent_;
  glide_.stop();
  if (!isProgress || !isVisible() || milliseconds <= 0) {
    show(percent());
    return;
  }
  glide_.setDuration(milliseconds);
  glide_.setStartValue(shownPercent_);
  glide_.setEndValue(percent());
  glide_.start();
}

void QtProgressBar::show(double percent) {
  shownPercent_ = percent;
  update();
}

QSize QtProgressBar::sizeHint() const {
  // Without a text in it a bar is as high as one.
  return {QProgressBar::sizeHint().width(), fontMetrics().height()};
}

void QtProgressBar::paintEvent(QPaintEvent* event) {
  QProgressBar::paintEvent(event);
  QPainter painter(this);
  drawStrongEdge(painter, rect(), palette());
}

void QtProgressBar::initStyleOption(QStyleOptionProgressBar* option) const {
  constexpr int partsOfPercent = 10;
  QProgressBar::initStyleOption(option);
  option->minimum = minimum() * partsOfPercent;
  option->maximum = maximum() * partsOfPercent;
  option->progress = static_cast<int>(std::lround(shownPercent_ * partsOfPercent));
}

}  // namespace zunto
