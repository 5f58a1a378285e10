// Native controls that mirror their models and forward what the user does.
//
// Each widget is made for one model, which must outlive it; it is owned by its parent widget. Thread: main
// thread only.
#pragma once

#include <QWidget>
#include <vector>

#include "platform/model/layout.h"

namespace zunto {

/// Where the keyboard focus of one window goes when its control can no longer have it.
///
/// A disabled control keeps it (see qt_steady_focus.h). From a hidden one it moves on to the next control, so
/// that it is never nowhere, and comes back when the control is shown again and the user has not moved it
/// meanwhile. Owner: the window's view.
class QtFocusKeeper {
 public:
  /// Applies the control's flags to its widget.
  void mirrorFlags(QWidget& widget, const Control& control);

 private:
  static bool canFocus(const QWidget& widget);
  static void moveFocusOn(QWidget& from);

  QWidget* owner_ = nullptr;    ///< lost the focus only for being hidden
  QWidget* standIn_ = nullptr;  ///< has it meanwhile
};

/// Makes the native controls of a window in `parent`, in the order of the calls, which becomes their tab
/// order.
class QtControlMaker {
 public:
  /// `focus` must outlive the controls.
  QtControlMaker(QWidget& parent, QtFocusKeeper& focus) : parent_(parent), focus_(focus) {}

  [[nodiscard]] QWidget& make(Label& model);
  [[nodiscard]] QWidget& make(TextField& model);
  [[nodiscard]] QWidget& make(CheckBox& model);
  [[nodiscard]] QWidget& make(PushButton& model);
  [[nodiscard]] QWidget& make(PopUpButton& model);
  [[nodiscard]] QWidget& make(ProgressBar& model);
  [[nodiscard]] QWidget& make(const Separator& separator);

 private:
  QWidget& parent_;
  QtFocusKeeper& focus_;
};

}  // namespace zunto
