#include "platform/qt/qt_controls.h"

#include <QCheckBox>
#include <QEvent>
#include <QKeyEvent>
#include <QLineEdit>
#include <QPainter>
#include <QPushButton>
#include <QStyleOptionButton>
#include <QStylePainter>
#include <memory>
#include <utility>

#include "platform/qt/qt_colors.h"
#include "platform/qt/qt_pop_up.h"
#include "platform/qt/qt_progress_bar.h"
#include "platform/qt/qt_steady_focus.h"
#include "platform/qt/qt_text.h"
#include "platform/qt/qt_text_label.h"

namespace zunto {

namespace {

/// A native widget with the subscription that keeps it equal to its model. Qt's parent owns it.
template <class Native, class Model>
Native& bind(std::unique_ptr<Native> made, Model& model, QtFocusKeeper& focus, void (Native::*mirror)()) {
  Native& widget = *made.release();
  const auto update = [&widget, &model, &focus, mirror] {
    (widget.*mirror)();
    focus.mirrorFlags(widget, model);
  };
  update();
  // Kept by a connection: it ends with the widget, and the subscription with it.
  auto subscription = std::make_shared<Observable::Subscription>(model.observe(update));
  QObject::connect(&widget, &QObject::destroyed, [subscription] {});
  return widget;
}

class FieldWidget final : public QtSteadyFocus<QLineEdit> {
 public:
  FieldWidget(TextField& model, QWidget* parent) : QtSteadyFocus(parent), model_(model) {
    setPlaceholderText(toQString(model.placeholder()));
    setAccessibleName(toQString(model.accessibleName()));
    setMaxLength(longestText);
    // Screen readers set the text without an edit, so every change counts that is not the model's own.
    QObject::connect(this, &QLineEdit::textChanged, this, [this](const QString& text) {
      if (isMirroring_) return;
      model_.userEdited(fromQString(text));
      mirrorText();
    });
    colorPlaceholder();
  }

  void mirrorText() {
    const QString wanted = toQString(model_.text());
    if (wanted == text()) return;
    if (model_.text() == shown_ && text() == shownAs_) return;
    isMirroring_ = true;
    setText(wanted);
    isMirroring_ = false;
    shown_ = model_.text();
    shownAs_ = text();
  }

 protected:
  void changeEvent(QEvent* event) override {
    QtSteadyFocus::changeEvent(event);
    if (event->type() == QEvent::PaletteChange) colorPlaceholder();
  }

  void paintEvent(QPaintEvent* event) override {
    QtSteadyFocus::paintEvent(event);
    QPainter painter(this);
    if (!hasFocus()) drawStrongEdge(painter, rect(), palette());
  }

 private:
  /// Not every palette has a colour for it that can be read.
  void colorPlaceholder() {
    QPalette shown = palette();
    shown.setCurrentColorGroup(QPalette::Active);
    const QColor wanted = secondaryTextColor(shown, QPalette::Text, QPalette::Base);
    if (shown.color(QPalette::PlaceholderText) == wanted) return;
    QPalette own;
    own.setResolveMask(0);
    own.setColor(QPalette::PlaceholderText, wanted);
    setPalette(own);
  }

  /// Links may be far longer than Qt's own limit of 32767 characters.
  static constexpr int longestText = 16 * 1024 * 1024;

  TextField& model_;
  std::string shown_;  ///< the model's text that was set last, and
  QString shownAs_;    ///< what the field made of it: it holds one line only
  bool isMirroring_ = false;
};

/// A button whose title runs in its own direction, whatever that of the layout is.
template <class Native, QStyle::ControlElement element>
class TitledButton : public QtSteadyFocus<Native> {
 public:
  using QtSteadyFocus<Native>::QtSteadyFocus;

 protected:
  void paintEvent(QPaintEvent*) override {
    QStylePainter painter(this);
    QStyleOptionButton option;
    this->initStyleOption(&option);
    painter.setLayoutDirection(directionOf(option.text));
    painter.drawControl(element, option);
    if (element == QStyle::CE_CheckBox) {
      const QRect box = this->style()->subElementRect(QStyle::SE_CheckBoxIndicator, &option, this);
      drawStrongEdge(painter, box, this->palette());
    } else if (!this->hasFocus()) {
      drawStrongEdge(painter, this->rect(), this->palette());
    }
  }
};

class CheckWidget final : public TitledButton<QCheckBox, QStyle::CE_CheckBox> {
 public:
  CheckWidget(CheckBox& model, QWidget* parent) : TitledButton(parent), model_(model) {
    setText(withoutMnemonic(model.title()));
    setSizePolicy(QSizePolicy::Maximum, QSizePolicy::Fixed);
    // Screen readers toggle past nextCheckState().
    QObject::connect(this, &QCheckBox::toggled, this, [this](bool on) {
      if (on != model_.isOn()) forwardToggle();
    });
  }

  void mirrorState() {
    if (isChecked() != model_.isOn()) setChecked(model_.isOn());
  }

 protected:
  void nextCheckState() override { forwardToggle(); }

 private:
  void forwardToggle() {
    model_.userToggled();
    mirrorState();
  }

  CheckBox& model_;
};

class ButtonWidget final : public TitledButton<QPushButton, QStyle::CE_PushButton> {
 public:
  ButtonWidget(PushButton& model, QWidget* parent) : TitledButton(parent), model_(model) {
    setText(withoutMnemonic(model.title()));
    setAutoDefault(false);
    setDefault(model.keyEquivalent() == KeyEquivalent::returnKey);
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    QObject::connect(this, &QPushButton::clicked, this, [this] { model_.userClicked(); });
  }

  void mirrorNothing() {}

  /// Some styles leave hardly any room beside the title.
  [[nodiscard]] QSize sizeHint() const override {
    return QPushButton::sizeHint() + QSize(2 * fontMetrics().averageCharWidth(), 0);
  }

 protected:
  void keyPressEvent(QKeyEvent* event) override {
    const bool isReturn = event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter;
    if (!isReturn) {
      QPushButton::keyPressEvent(event);
    } else if (!event->isAutoRepeat()) {
      click();
    }
  }

 private:
  const PushButton& model_;
};

/// A frame's line is bright on some dark palettes.
class LineWidget final : public QWidget {
 public:
  explicit LineWidget(QWidget* parent) : QWidget(parent) {
    setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    setFixedHeight(1);
  }

 protected:
  void paintEvent(QPaintEvent*) override {
    constexpr float share = 0.2F;
    QPainter painter(this);
    painter.setOpacity(share);
    painter.fillRect(rect(), palette().color(QPalette::WindowText));
  }
};

}  // namespace

bool QtFocusKeeper::canFocus(const QWidget& widget) {
  return widget.isEnabled() && !widget.isHidden() && (widget.focusPolicy() & Qt::TabFocus) != 0;
}

void QtFocusKeeper::moveFocusOn(QWidget& from) {
  for (QWidget* next = from.nextInFocusChain(); next != &from; next = next->nextInFocusChain()) {
    const bool isControl = next->parentWidget() == from.parentWidget();
    if (isControl && canFocus(*next)) {
      next->setFocus(Qt::OtherFocusReason);
      return;
    }
  }
}

void QtFocusKeeper::mirrorFlags(QWidget& widget, const Control& control) {
  const auto apply = [&] {
    if (widget.isEnabled() != control.isEnabled()) widget.setEnabled(control.isEnabled());
    // A new widget counts as hidden until its window is shown, when it comes up all the same unless told.
    // Telling it so would lay it out, without the place that it will have.
    const bool isHidden = widget.testAttribute(Qt::WA_WState_ExplicitShowHide) && widget.isHidden();
    if (isHidden != control.isHidden()) widget.setHidden(control.isHidden());
  };
  const QWidget* window = widget.window();
  if (window->focusWidget() == &widget) {
    apply();
    if (!widget.isHidden()) {
      // A window that comes to the front gives its focus to enabled controls only.
      if (widget.isEnabled()) widget.setFocus(Qt::OtherFocusReason);
      return;
    }
    if (window->focusWidget() == nullptr || window->focusWidget() == &widget) moveFocusOn(widget);
    if (owner_ == nullptr || standIn_ != &widget) owner_ = &widget;
    standIn_ = window->focusWidget();
    return;
  }
  apply();
  if (owner_ != &widget || !canFocus(widget)) return;
  const bool isUntouched = window->focusWidget() == standIn_ || window->focusWidget() == nullptr;
  owner_ = nullptr;
  if (isUntouched) widget.setFocus(Qt::OtherFocusReason);
  standIn_ = nullptr;
}

QWidget& QtControlMaker::make(Label& model) {
  return bind(std::make_unique<QtTextLabel>(model, &parent_), model, focus_, &QtTextLabel::mirrorText);
}

QWidget& QtControlMaker::make(TextField& model) {
  return bind(std::make_unique<FieldWidget>(model, &parent_), model, focus_, &FieldWidget::mirrorText);
}

QWidget& QtControlMaker::make(CheckBox& model) {
  return bind(std::make_unique<CheckWidget>(model, &parent_), model, focus_, &CheckWidget::mirrorState);
}

QWidget& QtControlMaker::make(PushButton& model) {
  return bind(std::make_unique<ButtonWidget>(model, &parent_), model, focus_, &ButtonWidget::mirrorNothing);
}

QWidget& QtControlMaker::make(PopUpButton& model) {
  QtPopUp& widget = bind(std::make_unique<QtPopUp>(model, &parent_), model, focus_, &QtPopUp::mirrorItems);
  widget.setAccessibleName(toQString(model.accessibleName()));
  return widget;
}

QWidget& QtControlMaker::make(ProgressBar& model) {
  return bind(std::make_unique<QtProgressBar>(model, &parent_), model, focus_, &QtProgressBar::mirrorValue);
}

QWidget& QtControlMaker::make(const Separator&) { return *std::make_unique<LineWidget>(&parent_).release(); }

}  // namespace zunto
