// What most tests of the Qt backend need: an application, its clock, and turns of the event loop.
#pragma once

#include <gtest/gtest.h>

#include <QApplication>
#include <QDeadlineTimer>
#include <QEventLoop>
#include <QKeyEvent>
#include <QWidget>
#include <functional>
#include <string>

#include "platform/qt/qt_application.h"
#include "platform/qt/qt_clock.h"
#include "platform/qt/qt_text.h"

namespace zunto::testing {

class QtTest : public ::testing::Test {
 protected:
  /// What Qt has put off must not be left for the next test's application.
  ~QtTest() override { QCoreApplication::processEvents(); }

  /// Runs the event loop until `condition` holds; answers whether it did within some seconds.
  static bool runUntil(const std::function<bool()>& condition) {
    const QDeadlineTimer deadline(20000);
    while (!condition()) {
      if (deadline.hasExpired()) return false;
      QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents | QEventLoop::AllEvents, 20);
    }
    return true;
  }

  /// Runs what is queued, and what that queues.
  void runTurns() {
    bool reached = false;
    clock.post([&] { clock.post([&reached] { reached = true; }); });
    ASSERT_TRUE(runUntil([&reached] { return reached; }));
    QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
  }

  static void press(QWidget& widget, int key, Qt::KeyboardModifiers modifiers = Qt::NoModifier,
                    const QString& text = {}) {
    QKeyEvent down(QEvent::KeyPress, key, modifiers, text);
    QApplication::sendEvent(&widget, &down);
    QKeyEvent up(QEvent::KeyRelease, key, modifiers, text);
    QApplication::sendEvent(&widget, &up);
  }

  /// The program's one window that is a child of `Native` and fulfils nothing else.
  static QWidget* topWindow() {
    for (QWidget* widget : QApplication::topLevelWidgets()) {
      if (widget->windowType() == Qt::Window) return widget;
    }
    return nullptr;
  }

  std::string programName = "qt_tests";
  char* argv[2] = {programName.data(), nullptr};
  QtApplication application{1, argv};
  QtClock clock;
};

}  // namespace zunto::testing
