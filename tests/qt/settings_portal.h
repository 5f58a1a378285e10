// The desktop's portal with the settings of a user, on a bus of the test's own.
#pragma once

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMetaType>
#include <QDBusVariant>
#include <QMap>
#include <QString>
#include <QVariantMap>

#include "platform/qt/qt_dbus_object.h"

namespace zunto::testing {

class SettingsPortal {
 public:
  static constexpr uint preferDark = 1;
  static constexpr uint preferLight = 2;

  explicit SettingsPortal(QDBusConnection bus)
      : bus_(bus),
        object_(bus, QStringLiteral("/org/freedesktop/portal/desktop"),
                {.interface = QStringLiteral("org.freedesktop.portal.Settings"),
                 .description = QString(),
                 .properties = [] { return QVariantMap(); },
                 .call = [this](const QDBusMessage& call,
                                const QDBusConnection& from) { return answer(call, from); }}) {
    qDBusRegisterMetaType<Settings>();
    bus_.registerService(QStringLiteral("org.freedesktop.portal.Desktop"));
  }
  SettingsPortal(const SettingsPortal&) = delete;
  SettingsPortal& operator=(const SettingsPortal&) = delete;
  ~SettingsPortal() { bus_.unregisterService(QStringLiteral("org.freedesktop.portal.Desktop")); }

  void set(const char* space, const char* key, const QVariant& value) {
    settings_[QString::fromLatin1(space)][QString::fromLatin1(key)] = value;
    object_.emitSignal(
        QStringLiteral("SettingChanged"),
        {QString::fromLatin1(space), QString::fromLatin1(key), QVariant::fromValue(QDBusVariant(value))});
  }
  void setScheme(uint scheme) { set("org.freedesktop.appearance", "color-scheme", scheme); }

 private:
  using Settings = QMap<QString, QVariantMap>;

  bool answer(const QDBusMessage& call, const QDBusConnection& from) {
    if (call.member() != QLatin1String("ReadAll")) return false;
    from.send(call.createReply(QVariant::fromValue(settings_)));
    return true;
  }

  QDBusConnection bus_;
  Settings settings_;
  QtDBusObject object_;
};

}  // namespace zunto::testing
