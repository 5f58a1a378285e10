// A menu offered on the bus, as the desktop's status bars read it (com.canonical.dbusmenu).
//
// Owner: the status item's view. Thread: main thread only.
#pragma once

#include <QDBusConnection>
#include <QString>
#include <functional>
#include <memory>
#include <vector>

#include "platform/model/menu.h"
#include "platform/qt/qt_dbus_object.h"

namespace zunto {

class QtDBusMenu {
 public:
  /// What is done with an item that the user has chosen.
  using Choose = std::function<void(const MenuItem&)>;

  /// Offers the items that `menu` has now (none: an empty menu) at `path` while this object lives, and keeps
  /// the menu.
  QtDBusMenu(QDBusConnection bus, const QString& path, std::shared_ptr<const Menu> menu, Choose choose);

 private:
  void itemChanged(int identifier);
  [[nodiscard]] std::shared_ptr<MenuItem> item(int identifier) const;
  [[nodiscard]] QVariantMap properties(int identifier) const;
  bool answer(const QDBusMessage& call, const QDBusConnection& bus);
  [[nodiscard]] QVariantList layout(const QVariantList& arguments) const;
  [[nodiscard]] QVariantList groupProperties(const QVariantList& arguments) const;
  /// Whether there is an item to which the event happened.
  [[nodiscard]] bool happened(int identifier, const QString& event) const;
  [[nodiscard]] QVariantList happenedToGroup(const QVariantList& arguments) const;

  std::shared_ptr<const Menu> menu_;
  Choose choose_;
  QtDBusObject object_;
  std::vector<Observable::Subscription> changes_;
};

}  // namespace zunto
