#include "platform/qt/qt_session_bus.h"

#include <QFileInfo>
#include <QString>

namespace zunto {

std::optional<QDBusConnection> connectToSessionBus() {
  const QString runtimeFolder = qEnvironmentVariable("XDG_RUNTIME_DIR");
  const bool isNamed = !qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS");
  const bool isAtItsPlace =
      !runtimeFolder.isEmpty() && QFileInfo::exists(runtimeFolder + QLatin1String("/bus"));
  if (!isNamed && !isAtItsPlace) return std::nullopt;
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (!bus.isConnected()) return std::nullopt;
  return bus;
}

}  // namespace zunto
