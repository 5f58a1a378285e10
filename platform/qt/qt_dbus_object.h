// Objects on the bus that are answered by hand: their calls and the standard properties interface.
//
// Owner: whoever offers the object. Thread: main thread only.
#pragma once

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVirtualObject>
#include <QString>
#include <QVariantMap>
#include <functional>

namespace zunto {

/// One object with one interface of its own. While it lives it is registered at its path.
class QtDBusObject final : public QDBusVirtualObject {
 public:
  struct Behavior {
    QString interface;
    QString description;  ///< the interface in the bus's introspection language
    /// All properties with their present values.
    std::function<QVariantMap()> properties;
    /// Answers the call of a method, or false when there is none of that name and signature.
    std::function<bool(const QDBusMessage& call, const QDBusConnection& bus)> call;
  };

  QtDBusObject(QDBusConnection bus, QString path, Behavior behavior);
  ~QtDBusObject() override;

  /// Sends a signal of the interface.
  void emitSignal(const QString& name, const QVariantList& arguments = {}) const;

  [[nodiscard]] QString introspect(const QString& path) const override;
  bool handleMessage(const QDBusMessage& message, const QDBusConnection& bus) override;

 private:
  void answerProperties(const QDBusMessage& message, const QDBusConnection& bus) const;

  QDBusConnection bus_;
  QString path_;
  Behavior behavior_;
};

}  // namespace zunto
