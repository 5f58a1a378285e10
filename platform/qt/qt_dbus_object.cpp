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
  if (message.interface() == propertiesInterface) return answerProperties(message, bus);
  const bool isMine = message.interface().isEmpty() || message.interface() == behavior_.interface;
  return isMine && behavior_.call(message, bus);
}

bool QtDBusObject::answerProperties(const QDBusMessage& message, const QDBusConnection& bus) const {
  const QVariantList arguments = message.arguments();
  if (arguments.isEmpty() || arguments.front().toString() != behavior_.interface) return false;
  const QVariantMap properties = behavior_.properties();
  if (message.member() == QLatin1String("GetAll")) {
    bus.send(message.createReply(QVariant(properties)));
    return true;
  }
  if (message.member() != QLatin1String("Get") || arguments.size() != 2) return false;
  const auto found = properties.find(arguments[1].toString());
  if (found == properties.end()) {
    bus.send(message.createErrorReply(QDBusError::UnknownProperty, QStringLiteral("No such property.")));
  } else {
    bus.send(message.createReply(QVariant::fromValue(QDBusVariant(*found))));
  }
  return true;
}

}  // namespace zunto
