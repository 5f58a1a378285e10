#include "platform/qt/qt_session_bus.h"

namespace zunto {

namespace {
constexpr const char* addressVariable = "DBUS_SESSION_BUS_ADDRESS";
}

QtSessionBus::QtSessionBus(bool answers) : answers_(answers), address_(qgetenv(addressVariable)) {
  if (!answers_) qputenv(addressVariable, "unix:path=/dev/null");
}

std::optional<QDBusConnection> QtSessionBus::connect() {
  // Qt connects once, and remembers that it failed.
  QDBusConnection bus = QDBusConnection::sessionBus();
  if (answers_) return bus.isConnected() ? std::optional(bus) : std::nullopt;
  if (address_.isNull()) {
    qunsetenv(addressVariable);
  } else {
    qputenv(addressVariable, address_);
  }
  return std::nullopt;
}

}  // namespace zunto
