// The status item as a StatusNotifierItem of the desktop.
//
// It announces itself whenever a watcher appears, and tells windows whether a host shows it. Owner: the
// program's entry; outlives the logic and every window view. Thread: main thread only.
#pragma once

#include <QDBusConnection>
#include <memory>
#include <optional>

#include "platform/qt/qt_display.h"
#include "platform/qt/qt_status_menu.h"
#include "platform/status_bar.h"

namespace zunto {

class QtStatusBar final : public StatusBar {
 public:
  /// `bus` is none where there is no session bus: the menu then stands in the windows for good.
  explicit QtStatusBar(std::optional<QDBusConnection> bus, QtDisplay display = currentDisplay());
  ~QtStatusBar() override;

  /// One item at a time is shown. It must not outlive the bar.
  [[nodiscard]] std::shared_ptr<StatusItem> makeStatusItem() override;

  /// For windows.
  [[nodiscard]] QtStatusMenu& statusMenu() { return statusMenu_; }

 private:
  std::optional<QDBusConnection> bus_;
  QtDisplay display_;
  QtStatusMenu statusMenu_;
};

}  // namespace zunto
