// The status item on bars that know only the older tray of X11, where an icon is a small window of the
// program.
//
// Owner: the status item's view. Thread: main thread only.
#pragma once

#include <QMenu>
#include <QSystemTrayIcon>
#include <memory>
#include <optional>

#include "platform/model/status_item.h"
#include "platform/qt/qt_menu_actions.h"

namespace zunto {

class QtTrayIcon {
 public:
  /// Shows nothing yet. `item` must outlive this object.
  explicit QtTrayIcon(StatusItem& item) : item_(item) {}
  QtTrayIcon(const QtTrayIcon&) = delete;
  QtTrayIcon& operator=(const QtTrayIcon&) = delete;
  ~QtTrayIcon();

  /// Shows the item on such a bar, now or as soon as there is one. The first time Qt asks the session bus for
  /// a newer tray and waits for the answer, so the bus should be known to answer.
  void offer();
  void withdraw();

 private:
  void mirror();

  StatusItem& item_;
  std::shared_ptr<const Menu> offered_;
  QMenu menu_;
  std::optional<QtMenuActions> actions_;
  std::unique_ptr<QSystemTrayIcon> icon_;  ///< made when it is first needed
  Observable::Subscription changes_;
};

}  // namespace zunto
