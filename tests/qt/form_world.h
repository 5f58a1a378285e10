// The import form in its native window, on a screen and in a font that the test chooses.
#pragma once

#include <QApplication>
#include <QComboBox>
#include <QFont>
#include <QScrollArea>
#include <QSize>
#include <QTemporaryFile>
#include <QWidget>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "import/import_form.h"
#include "platform/qt/qt_window_system.h"
#include "tests/qt/form_states.h"
#include "tests/qt/qt_world.h"

namespace zunto::testing {

/// The one screen of a platform without a display, for the application that is made next.
class TestScreen {
 public:
  /// `size` in the screen's own pixels, of which `scale` make one point.
  TestScreen(QSize size, double scale) {
    if (!screens_.open()) throw std::runtime_error("no file for the screen");
    screens_.write(QStringLiteral(R"({"screens":[{"name":"test","x":0,"y":0,"width":%1,"height":%2,
                                      "logicalDpi":96,"logicalBaseDpi":96,"dpr":1}]})")
                       .arg(size.width())
                       .arg(size.height())
                       .toUtf8());
    screens_.close();
    qputenv("QT_QPA_PLATFORM", "offscreen:configfile=" + screens_.fileName().toUtf8());
    qputenv("QT_SCALE_FACTOR", QByteArray::number(scale));
  }
  TestScreen(const TestScreen&) = delete;
  TestScreen& operator=(const TestScreen&) = delete;
  ~TestScreen() {
    qputenv("QT_QPA_PLATFORM", platform_);
    qunsetenv("QT_SCALE_FACTOR");
  }

 private:
  QByteArray platform_ = qgetenv("QT_QPA_PLATFORM");
  QTemporaryFile screens_{QStringLiteral("/tmp/zunto-screens-XXXXXX.json")};
};

/// One window with the form; it ends with this object.
struct FormWindow {
  explicit FormWindow(std::optional<QDBusConnection> bus = std::nullopt)
      : windows(statusMenu, std::move(bus)) {
    view = windows.makeView(model);
    for (QWidget* each : QApplication::topLevelWidgets()) {
      if (each->windowTitle() == toQString(model.spec().title)) native = each;
    }
    area = native->findChild<QScrollArea*>();
  }

  void open() {
    model.show();
    model.center();
  }

  /// The controls that are shown, in the order of the form, and the line between its halves.
  [[nodiscard]] std::vector<QWidget*> controls() const {
    std::vector<QWidget*> shown;
    for (QWidget* each : area->widget()->findChildren<QWidget*>(QString(), Qt::FindDirectChildrenOnly)) {
      if (!each->isHidden()) shown.push_back(each);
    }
    return shown;
  }

  ImportForm form;
  QtStatusMenu statusMenu;
  QtWindowSystem windows;
  Window model{form.describeWindow()};
  std::unique_ptr<WindowView> view;
  QWidget* native = nullptr;
  QScrollArea* area = nullptr;
};

}  // namespace zunto::testing
