// Shows window models as native windows.
//
// Owner: the program's entry; outlives the logic. Thread: main thread only.
#pragma once

#include <memory>

#include "async/interface.h"
#include "platform/model/window.h"

namespace zunto {

/// The native window of one model. Destroying it removes the window and every native control in it.
class WindowView : public Interface {};

class WindowSystem : public Interface {
 public:
  /// Builds the native window of `window`, not yet shown, and binds every control of its layout. The model
  /// and its controls must outlive the view.
  [[nodiscard]] virtual std::unique_ptr<WindowView> makeView(Window& window) = 0;
};

}  // namespace zunto
