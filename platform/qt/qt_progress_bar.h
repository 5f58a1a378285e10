// A progress bar that shows its model's value, and glides to a new one instead of jumping there.
//
// Screen readers are told of every ten percent, and of any value when they ask. Owner: the window that it
// stands in. Thread: main thread only.
#pragma once

#include <QProgressBar>
#include <QVariantAnimation>

#include "platform/model/controls.h"

namespace zunto {

class QtProgressBar final : public QProgressBar {
 public:
  /// Mirrors `model`, which must outlive it.
  QtProgressBar(ProgressBar& model, QWidget* parent);

  void mirrorValue();

  /// The model's value.
  [[nodiscard]] double percent() const { return model_.value(); }
  /// How far the bar is filled at this moment.
  [[nodiscard]] double shownPercent() const { return shownPercent_; }

  [[nodiscard]] QSize sizeHint() const override;
  [[nodiscard]] QSize minimumSizeHint() const override { return sizeHint(); }

 protected:
  void paintEvent(QPaintEvent* event) override;
  void initStyleOption(QStyleOptionProgressBar* option) const override;

 private:
  void show(double percent);

  const ProgressBar& model_;
  double shownPercent_ = 0;
  QVariantAnimation glide_;
};

/// From now on a QtProgressBar has its model's percent for screen readers, and no other unit.
void countQtProgressBarsInPercent();

}  // namespace zunto
