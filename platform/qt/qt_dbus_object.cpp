#include "platform/qt/qt_dbus_object.h"

#include <QDBusError>
#include <QDBusVariant>
#include <utility>

namespace zunto {

namespace {
constexpr QLatin1String propertiesInterface("org.freedesktop.DBus.Properties");
}

QtDBusObject::QtDBusObject(QDBusConnection bus, QString path, Behavior behavior)
    : bus_(std::move(bus)), path_(std::move(path)), behavior_(std::move(behavior)) {
  bus_.registerVirtualObject(path_, this);
}

QtDBusObject::~QtDBusObject() { bus_.unregisterObject(path_); }

void QtDBusObject::emitSignal(const QString& name, const QVariantList& arguments) const {
  QDBusMessage message = QDBusMessage::createSignal(path_, behavior_.interface, name);
  message.setArguments(arguments);
  bus_.send(message);
}

QString QtDBusObject::introspect(const QString&) const { return behavior_.description; }

bool QtDBusObject::handleMessage(const QDBusMessage& message, const QDBusConnection& bus) {
  if (message.type() != QDBusMessage::MethodCallMessage) return false;
  if (message.interface() == propertiesInterface) {
    answerProperties(message, bus);
    return true;
  }
  const bool isMine = message.interface().isEmpty() || message.interface() == behavior_.interface;
  if (!isMine) return false;
  if (!behavior_.call(message, bus)) {
    // Of a call that nobody answers Qt would say that there is no such interface, which desktops take for a
    // broken item. A method that is not there they do without.
    bus.send(message.createErrorReply(QDBusError::UnknownMethod, QStringLiteral("No such method.")));
  }
  return true;
}

void QtDBusObject::answerProperties(const QDBusMessage& message, const QDBusConnection& bus) const {
  const auto refuse = [&](QDBusError::ErrorType error, const char* reason) {
    bus.send(message.createErrorReply(error, QString::fromLatin1(reason)));
  };
  const QString request = message.member() + QLatin1Char(' ') + message.signature();
  const QVariantList arguments = message.arguments();
  if (request != QLatin1String("Get ss") && request != QLatin1String("GetAll s")) {
    refuse(QDBusError::UnknownMethod, "No such method.");
    return;
  }
  if (arguments.front().toString() != behavior_.interface) {
    refuse(QDBusError::UnknownInterface, "No such interface.");
    return;
  }
  const QVariantMap properties = behavior_.properties();
  if (arguments.size() == 1) {
    bus.send(message.createReply(QVariant(properties)));
    return;
  }
  const auto found = properties.find(arguments[1].toString());
  if (found == properties.end()) {
    refuse(QDBusError::UnknownProperty, "No such property.");
    return;
  }
  bus.send(message.createReply(QVariant::fromValue(QDBusVariant(*found))));
}

}  // namespace zunto
