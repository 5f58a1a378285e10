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

  enum class Host {
    unknown,  ///< the desktop has been asked and has not answered
    none,     ///< nobody shows the item: windows offer the menu themselves
    shows     ///< a host of the desktop shows the item
  };

  [[nodiscard]] Host host() const { return host_; }
  void setHost(Host host) { assign(host_, host); }

 private:
  std::weak_ptr<StatusItem> item_;
  Host host_ = Host::none;
};

}  // namespace zunto
