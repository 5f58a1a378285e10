// A status bar that shows nothing and remembers the items it made.
//
// Owner: the test. Thread: main thread only.
#pragma once

#include <memory>
#include <vector>

#include "platform/status_bar.h"

namespace zunto::testing {

class FakeStatusBar final : public StatusBar {
 public:
  /// Whether the items made from now on have a button.
  StatusItem::Button button = StatusItem::Button::present;

  [[nodiscard]] std::shared_ptr<StatusItem> makeStatusItem() override {
    auto item = std::make_shared<StatusItem>(button);
    items_.push_back(item);
    return item;
  }

  /// Every item so far, oldest first, held as weakly as a bar holds them.
  [[nodiscard]] const std::vector<std::weak_ptr<StatusItem>>& items() const { return items_; }

 private:
  std::vector<std::weak_ptr<StatusItem>> items_;
};

}  // namespace zunto::testing
