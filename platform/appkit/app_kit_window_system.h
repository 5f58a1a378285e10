// Windows of the system for the window models.
//
// Owner: the program's entry. Thread: main thread only.
#pragma once

#include "platform/window_system.h"

namespace zunto {

class AppKitWindowSystem final : public WindowSystem {
 public:
  [[nodiscard]] std::unique_ptr<WindowView> makeView(Window& window) override;
};

}  // namespace zunto
