// Lays controls out as a model's stack says. Plain functions; main thread only.
#pragma once

#include <QBoxLayout>
#include <memory>
#include <vector>

#include "platform/model/layout.h"
#include "platform/qt/qt_controls.h"

namespace zunto {

/// The widgets of one window that are as wide as the widest of them. They must outlive it.
class QtColumn {
 public:
  void add(QWidget& widget) { widgets_.push_back(&widget); }
  /// To be called whenever one of them may want another width.
  void align() const;

 private:
  std::vector<QWidget*> widgets_;
};

/// The layout of `stack` with all its controls, made in reading order. The caller installs it on the widget
/// that `maker` makes controls for. What is to stand in a column is added to `column`.
[[nodiscard]] std::unique_ptr<QBoxLayout> makeStackLayout(const Stack& stack, QtControlMaker& maker,
                                                          QtColumn& column);

}  // namespace zunto
