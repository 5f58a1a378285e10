// Window models as Qt windows.
//
// Owner: the program's entry; outlives the logic. Thread: main thread only.
#pragma once

#include <QDBusConnection>
#include <memory>
#include <optional>
#include <utility>

#include "platform/qt/qt_display.h"
#include "platform/qt/qt_status_menu.h"
#include "platform/window_system.h"

namespace zunto {

class QtWindowSystem final : public WindowSystem {
 public:
  /// The status menu's key equivalents work in every window, and its menu stands there while the desktop does
  /// not show it. `statusMenu` must outlive every view. Over `bus`, where there is one, task bars learn of a
  /// window's job.
  explicit QtWindowSystem(QtStatusMenu& statusMenu, std::optional<QDBusConnection> bus = std::nullopt,
                          QtDisplay display = currentDisplay())
      : statusMenu_(statusMenu), bus_(std::move(bus)), display_(display) {}

  [[nodiscard]] std::unique_ptr<WindowView> makeView(Window& window) override;

 private:
  QtStatusMenu& statusMenu_;
  std::optional<QDBusConnection> bus_;
  QtDisplay display_;
};

}  // namespace zunto
