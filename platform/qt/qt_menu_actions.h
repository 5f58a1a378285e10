// The items of a menu as actions, which menus and windows of the desktop show and their keys trigger.
//
// Owner: the view that shows them. Thread: main thread only.
#pragma once

#include <QAction>
#include <QList>
#include <memory>
#include <vector>

#include "platform/model/menu.h"

namespace zunto {

class QtMenuActions {
 public:
  /// Mirrors the items that `menu` has now, and keeps the menu.
  explicit QtMenuActions(std::shared_ptr<const Menu> menu);

  /// In the menu's order; owned by this object.
  [[nodiscard]] QList<QAction*> actions() const;

 private:
  struct Item {
    std::unique_ptr<QAction> action;
    Observable::Subscription changes;
  };

  std::shared_ptr<const Menu> menu_;
  std::vector<Item> items_;
};

}  // namespace zunto
