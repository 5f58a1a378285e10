// The Linux desktop's face of the program, driven by its native controls.
#include <gtest/gtest.h>

#include <QAbstractItemView>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDeadlineTimer>
#include <QDialogButtonBox>
#include <QDragEnterEvent>
#include <QDropEvent>
#include <QFileDialog>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QMessageBox>
#include <QMimeData>
#include <QProgressBar>
#include <QPushButton>
#include <QScrollArea>
#include <algorithm>
#include <cstdlib>
#include <functional>
#include <utility>

#include "platform/qt/qt_application.h"
#include "platform/qt/qt_clock.h"
#include "platform/qt/qt_desktop.h"
#include "platform/qt/qt_dialogs.h"
#include "platform/qt/qt_progress_bar.h"
#include "platform/qt/qt_status_bar.h"
#include "platform/qt/qt_text.h"
#include "platform/qt/qt_url_events.h"
#include "platform/qt/qt_window_system.h"
#include "tests/faces/face.h"

namespace zunto::testing {
namespace {

using Kind = SeenControl::Kind;

QWidget* importWindow() {
  for (QWidget* widget : QApplication::topLevelWidgets()) {
    if (widget->windowTitle() == QStringLiteral("ZUNTO Media Import")) return widget;
  }
  return nullptr;
}

/// What holds the controls, without the menu bar.
QWidget* content(QWidget* window) { return window->findChild<QScrollArea*>()->widget(); }

/// The first visible widget of one kind for which `matches` answers true; nullptr when there is none.
template <class Widget>
Widget* find(const std::function<bool(const Widget&)>& matches) {
  QWidget* window = importWindow();
  if (window == nullptr) return nullptr;
  for (Widget* widget : content(window)->findChildren<Widget*>()) {
    if (widget->isVisibleTo(window) && matches(*widget)) return widget;
  }
  return nullptr;
}

template <class Widget>
Widget* findNamed(const std::string& name) {
  return find<Widget>([&](const Widget& widget) { return fromQString(widget.accessibleName()) == name; });
}

void press(QWidget& widget, int key, const QString& text = {}) {
  QKeyEvent down(QEvent::KeyPress, key, Qt::NoModifier, text);
  QApplication::sendEvent(&widget, &down);
  QKeyEvent up(QEvent::KeyRelease, key, Qt::NoModifier, text);
  QApplication::sendEvent(&widget, &up);
}

void readPopUp(const QComboBox& popUp, SeenControl& seen) {
  seen.kind = Kind::popUp;
  seen.text = fromQString(popUp.currentText());
  for (int i = 0; i < popUp.count(); ++i) seen.items.push_back(fromQString(popUp.itemText(i)));
  if (popUp.currentIndex() >= 0) seen.selection = static_cast<std::size_t>(popUp.currentIndex());
}

SeenControl readControl(const QWidget& widget, const QWidget& area) {
  SeenControl seen;
  seen.name = fromQString(widget.accessibleName());
  seen.isEnabled = widget.isEnabled();
  const QPoint corner = widget.mapTo(&area, QPoint());
  seen.x = corner.x();
  seen.y = corner.y();
  seen.width = widget.width();
  seen.height = widget.height();
  if (const auto* label = qobject_cast<const QLabel*>(&widget)) {
    seen.text = fromQString(label->text());
  } else if (const auto* field = qobject_cast<const QLineEdit*>(&widget)) {
    seen.kind = Kind::field;
    seen.text = fromQString(field->text());
  } else if (const auto* popUp = qobject_cast<const QComboBox*>(&widget)) {
    readPopUp(*popUp, seen);
  } else if (const auto* bar = qobject_cast<const QProgressBar*>(&widget)) {
    seen.kind = Kind::progress;
    seen.value = dynamic_cast<const QtProgressBar&>(*bar).percent();
  } else if (const auto* button = qobject_cast<const QAbstractButton*>(&widget)) {
    seen.kind = qobject_cast<const QCheckBox*>(button) != nullptr ? Kind::checkBox : Kind::button;
    seen.text = fromQString(button->text());
    seen.isOn = button->isChecked();
  } else {
    seen.kind = Kind::separator;
  }
  return seen;
}

class QtWindowDriver final : public WindowDriver {
 public:
  SeenWindow look() override {
    QWidget* window = importWindow();
    QWidget* area = content(window);
    SeenWindow seen{.isVisible = window->isVisible(),
                    .title = fromQString(window->windowTitle()),
                    .contentWidth = static_cast<double>(area->width()),
                    .contentHeight = static_cast<double>(area->height()),
                    .controls = {}};
    for (const QWidget* widget : area->findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly)) {
      if (widget->isVisibleTo(window)) seen.controls.push_back(readControl(*widget, *area));
    }
    return seen;
  }

  void click(const std::string& title) override {
    auto* button =
        find<QAbstractButton>([&](const QAbstractButton& one) { return fromQString(one.text()) == title; });
    if (button != nullptr) button->click();
  }

  void type(const std::string& name, const std::string& text) override {
    auto* field = findNamed<QLineEdit>(name);
    if (field == nullptr || !field->isEnabled()) return;
    field->setFocus();
    field->selectAll();
    press(*field, Qt::Key_unknown, toQString(text));
  }

  void choose(const std::string& name, std::size_t index) override {
    auto* popUp = findNamed<QComboBox>(name);
    if (popUp == nullptr || !popUp->isEnabled()) return;
    popUp->showPopup();
    popUp->view()->setCurrentIndex(popUp->model()->index(static_cast<int>(index), 0));
    press(*popUp->view(), Qt::Key_Return);
  }

  void drop(const std::string& text) override {
    QMimeData data;
    data.setText(toQString(text));
    QDragEnterEvent enter({5, 5}, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    enter.ignore();
    QApplication::sendEvent(importWindow(), &enter);
    if (!enter.isAccepted()) return;
    QDropEvent drop({5, 5}, Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(importWindow(), &drop);
  }

  void pressReturn() override {
    QWidget* focused = importWindow()->focusWidget();
    press(focused != nullptr ? *focused : *importWindow(), Qt::Key_Return, QStringLiteral("\r"));
  }

  void close() override { importWindow()->close(); }
};

/// The status menu where no desktop shows it: in the window's menu bar.
class QtStatusDriver final : public StatusDriver {
 public:
  std::string title() override { return fromQString(menu()->title()); }

  std::vector<SeenMenuItem> openMenu() override {
    std::vector<SeenMenuItem> items;
    for (const QAction* action : menu()->actions()) {
      items.push_back({.isSeparator = action->isSeparator(),
                       .title = action->isSeparator() ? std::string() : fromQString(action->text()),
                       .isEnabled = action->isEnabled() && !action->isSeparator(),
                       .keyEquivalent = fromQString(
                           action->shortcut().toString().section(QLatin1Char('+'), 1).toLower())});
    }
    return items;
  }

  void choose(const std::string& title) override {
    for (QAction* action : menu()->actions()) {
      if (fromQString(action->text()) == title) {
        action->trigger();
        return;
      }
    }
  }

 private:
  static QMenu* menu() { return importWindow()->findChild<QMenuBar*>()->actions().front()->menu(); }
};

class QtDialogDriver final : public DialogDriver {
 public:
  void answerAlert(std::string button) override { nextButton_ = std::move(button); }
  void answerSavePanel(std::optional<std::filesystem::path> location) override {
    nextLocation_ = std::move(location);
  }
  const std::vector<SeenDialog>& seen() const override { return seen_; }

  /// Answers the dialog that stands, if one does; answers whether one did.
  bool answerOpenDialog() {
    QWidget* dialog = QApplication::activeModalWidget();
    if (auto* alert = qobject_cast<QMessageBox*>(dialog)) {
      answer(*alert);
    } else if (auto* panel = qobject_cast<QFileDialog*>(dialog)) {
      answer(*panel);
    }
    return dialog != nullptr;
  }

 private:
  void answer(QMessageBox& alert) {
    SeenDialog dialog{.kind = SeenDialog::Kind::alert,
                      .message = fromQString(alert.text()),
                      .information = fromQString(alert.informativeText()),
                      .buttons = {},
                      .suggestedName = {}};
    QAbstractButton* chosen = nullptr;
    for (QAbstractButton* button : alert.buttons()) {
      dialog.buttons.push_back(fromQString(button->text()));
      if (nextButton_ && dialog.buttons.back() == *nextButton_) chosen = button;
    }
    seen_.push_back(std::move(dialog));
    nextButton_.reset();
    if (chosen == nullptr) {
      ADD_FAILURE() << "an alert came up that nobody expected, or has no such button: "
                    << seen_.back().message;
      alert.reject();
      return;
    }
    chosen->click();
  }

  void answer(QFileDialog& panel) {
    auto* name = panel.findChild<QLineEdit*>();
    seen_.push_back({.kind = SeenDialog::Kind::savePanel,
                     .message = fromQString(panel.windowTitle()),
                     .information = {},
                     .buttons = {},
                     .suggestedName = fromQString(name->text())});
    if (!nextLocation_) ADD_FAILURE() << "a save panel came up that nobody expected";
    const std::optional<std::filesystem::path> location = nextLocation_.value_or(std::nullopt);
    nextLocation_.reset();
    if (!location) {
      panel.reject();
      return;
    }
    name->setText(toQString(location->string()));
    panel.findChild<QDialogButtonBox*>()->button(QDialogButtonBox::Save)->click();
  }

  std::vector<SeenDialog> seen_;
  std::optional<std::string> nextButton_;
  std::optional<std::optional<std::filesystem::path>> nextLocation_;
};

/// The desktop around the program. Opening, revealing and beeping leave the process, so they end here.
class QtDesktopDriver final : public DesktopDriver, public Workspace, public Beeper {
 public:
  explicit QtDesktopDriver(QtUrlEvents& urlEvents) : urlEvents_(urlEvents) {}

  void setPasteboard(std::optional<std::string> text) override {
    if (text) {
      QGuiApplication::clipboard()->setText(toQString(*text));
    } else {
      QGuiApplication::clipboard()->clear();
    }
  }
  void deliverLink(const std::string& link) override { urlEvents_.deliver(link); }
  std::vector<std::string> requests() override { return requests_; }

  void openWebAddress(const std::string& url) override { requests_.push_back("open " + url); }
  void reveal(const std::filesystem::path& location) override {
    requests_.push_back("reveal " + location.string());
  }
  void beep() override { requests_.emplace_back("beep"); }

 private:
  QtUrlEvents& urlEvents_;
  std::vector<std::string> requests_;
};

class QtFace final : public Face {
 public:
  FaceCapabilities capabilities() override {
    return {.windowSystem = windowSystem_,
            .statusBar = statusBar_,
            .alerts = nativeDialogs_,
            .savePanels = nativeDialogs_,
            .pasteboard = pasteboard_,
            .beeper = desktop_,
            .workspace = desktop_,
            .urlEvents = urlEvents_};
  }
  WindowDriver& window() override { return window_; }
  StatusDriver& status() override { return status_; }
  DialogDriver& dialogs() override { return dialogs_; }
  DesktopDriver& desktop() override { return desktop_; }

  void runNativeLoop() override {
    do {
      runTurns();
    } while (dialogs_.answerOpenDialog());
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }

 private:
  /// Runs what is queued, and what that queues.
  void runTurns() {
    bool isDrained = false;
    clock_.post([&] { clock_.post([&isDrained] { isDrained = true; }); });
    const QDeadlineTimer deadline(20000);
    while (!isDrained) {
      if (deadline.hasExpired()) std::abort();
      QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 20);
    }
  }

  std::string programName_ = "qt_face_test";
  char* arguments_[2] = {programName_.data(), nullptr};
  QtApplication application_{1, arguments_};
  QtClock clock_;
  QtStatusBar statusBar_{std::nullopt};
  QtWindowSystem windowSystem_{statusBar_.statusMenu()};
  QtDialogs nativeDialogs_{clock_};
  QtPasteboard pasteboard_;
  QtUrlEvents urlEvents_{clock_};
  QtWindowDriver window_;
  QtStatusDriver status_;
  QtDialogDriver dialogs_;
  QtDesktopDriver desktop_{urlEvents_};
};

}  // namespace

std::unique_ptr<Face> makeFace() { return std::make_unique<QtFace>(); }

}  // namespace zunto::testing

int main(int argc, char** argv) { return zunto::testing::runFaceCases(argc, argv, "Qt"); }
