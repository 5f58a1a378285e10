// The place in the desktop that shows the program's status item.
//
// Owner: the program's entry; outlives the logic. Thread: main thread only.
#pragma once

#include <memory>

#include "async/interface.h"
#include "platform/model/status_item.h"

namespace zunto {

class StatusBar : public Interface {
 public:
  /// A new item of variable length. The caller owns it; the bar shows it, with its menu, as long as it lives.
  [[nodiscard]] virtual std::shared_ptr<StatusItem> makeStatusItem() = 0;
};

}  // namespace zunto
