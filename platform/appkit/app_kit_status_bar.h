// The system status bar.
//
// Owner: the program's entry. Thread: main thread only.
#pragma once

#include "platform/status_bar.h"

namespace zunto {

class AppKitStatusBar final : public StatusBar {
 public:
  [[nodiscard]] std::shared_ptr<StatusItem> makeStatusItem() override;
};

}  // namespace zunto
