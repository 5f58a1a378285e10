#include "platform/qt/qt_status_bar.h"

#include <utility>

#include "platform/qt/qt_status_notifier.h"
#include "platform/qt/qt_tray_icon.h"

namespace zunto {

namespace {

/// What the caller owns when it owns an item: the item goes from the desktop when it is dropped.
struct ShownItem {
  StatusItem item;
  // Declared last: they end before the item.
  std::unique_ptr<QtStatusNotifier> notifier;
  std::unique_ptr<QtTrayIcon> olderTray;  ///< where there is no bus for a newer one
};

}  // namespace

QtStatusBar::QtStatusBar(std::optional<QDBusConnection> bus, QtDisplay display)
    : bus_(std::move(bus)), display_(display) {}

QtStatusBar::~QtStatusBar() = default;

std::shared_ptr<StatusItem> QtStatusBar::makeStatusItem() {
  const auto shown = std::make_shared<ShownItem>();
  if (bus_) {
    shown->notifier = std::make_unique<QtStatusNotifier>(*bus_, display_, shown->item, statusMenu_);
  } else if (display_ == QtDisplay::x11) {
    shown->olderTray = std::make_unique<QtTrayIcon>(shown->item);
    shown->olderTray->offer();
  }
  std::shared_ptr<StatusItem> item(shown, &shown->item);
  statusMenu_.setItem(item);
  return item;
}

}  // namespace zunto
