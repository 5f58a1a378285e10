// What windows need to know of the status item: its title and menu, and whether the desktop shows them.
//
// Owner: the QtStatusBar. Thread: main thread only.
#pragma once

#include <memory>
#include <utility>

#include "platform/model/observable.h"
#include "platform/model/status_item.h"

namespace zunto {

class QtStatusMenu final : public Observable {
 public:
  /// None while the program has no status item.
  [[nodiscard]] std::shared_ptr<StatusItem> item() const { return item_.lock(); }
  void setItem(const std::shared_ptr<StatusItem>& item) {
    item_ = item;
    notify();
  }

  /// Whether a host of the desktop shows the item; else windows offer the menu themselves.
  [[nodiscard]] bool isShownByDesktop() const { return shownByDesktop_; }
  void setShownByDesktop(bool shown) { assign(shownByDesktop_, shown); }

 private:
  std::weak_ptr<StatusItem> item_;
  bool shownByDesktop_ = false;
};

}  // namespace zunto
