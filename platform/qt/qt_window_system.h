// Window models as Qt windows.
//
// Owner: the program's entry; outlives the logic. Thread: main thread only.
#pragma once

#include <memory>

#include "platform/qt/qt_display.h"
#include "platform/qt/qt_status_menu.h"
#include "platform/window_system.h"

namespace zunto {

class QtWindowSystem final : public WindowSystem {
 public:
  /// The status menu's key equivalents work in every window, and its menu stands there while the desktop does
  /// not show it. `statusMenu` must outlive every view.
  explicit QtWindowSystem(QtStatusMenu& statusMenu, QtDisplay display = currentDisplay())
      : statusMenu_(statusMenu), display_(display) {}

  [[nodiscard]] std::unique_ptr<WindowView> makeView(Window& window) override;

 private:
  QtStatusMenu& statusMenu_;
  QtDisplay display_;
};

}  // namespace zunto
