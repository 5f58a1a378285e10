// Lays controls out as a model's stack says. Plain functions; main thread only.
#pragma once

#include <QBoxLayout>
#include <memory>

#include "platform/model/layout.h"
#include "platform/qt/qt_controls.h"

namespace zunto {

/// The layout of `stack` with all its controls, made in reading order. The caller installs it on the widget
/// that `maker` makes controls for.
[[nodiscard]] std::unique_ptr<QBoxLayout> makeStackLayout(const Stack& stack, QtControlMaker& maker);

}  // namespace zunto
