#include "platform/qt/qt_status_bar.h"

#include <utility>

#include "platform/qt/qt_status_notifier.h"

namespace zunto {

namespace {

/// What the caller owns when it owns an item: the item goes from the desktop when it is dropped.
struct ShownItem {
  StatusItem item;
  std::unique_ptr<QtStatusNotifier> notifier;  // declared last: it ends before the item
};

}  // namespace

QtStatusBar::QtStatusBar(std::optional<QDBusConnection> bus, QtDisplay display)
    : bus_(std::move(bus)), display_(display) {}

QtStatusBar::~QtStatusBar() = default;

std::shared_ptr<StatusItem> QtStatusBar::makeStatusItem() {
  const auto shown = std::make_shared<ShownItem>();
  if (bus_) shown->notifier = std::make_unique<QtStatusNotifier>(*bus_, display_, shown->item, statusMenu_);
  std::shared_ptr<StatusItem> item(shown, &shown->item);
  statusMenu_.setItem(item);
  return item;
}

}  // namespace zunto
