#include "platform/qt/qt_display.h"

#include <QGuiApplication>
#include <QtGlobal>

namespace zunto {

QtDisplay currentDisplay() {
  const QString platform = QGuiApplication::platformName();
  if (platform.startsWith(QLatin1String("wayland"))) return QtDisplay::wayland;
  const bool isNested = platform == QLatin1String("xcb") && !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY");
  return isNested ? QtDisplay::xwayland : QtDisplay::x11;
}

}  // namespace zunto
