// A native menu bound to a menu model. The system enables its items as it thinks fit each time the menu is
// opened, by asking their target: the target answers with the model's state.
//
// Owner: whoever shows the menu. Destroying it takes the target away from the native items. Thread: main
// thread only.
#pragma once

#import <Cocoa/Cocoa.h>

#include <memory>
#include <vector>

#import "platform/appkit/retained.h"
#include "platform/model/menu.h"

@class ZUNTOMenuTarget;

namespace zunto {

class MenuBinding {
 public:
  explicit MenuBinding(std::shared_ptr<const Menu> model);
  MenuBinding(const MenuBinding&) = delete;
  MenuBinding& operator=(const MenuBinding&) = delete;
  ~MenuBinding();

  [[nodiscard]] NSMenu* menu() const { return native_.get(); }

 private:
  void addItem(MenuItem& model, NSInteger index);

  std::shared_ptr<const Menu> model_;
  Retained<NSMenu> native_;
  Retained<ZUNTOMenuTarget> target_;
  std::vector<Observable::Subscription> subscriptions_;
};

}  // namespace zunto
