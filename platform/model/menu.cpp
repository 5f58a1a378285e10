#include "platform/model/menu.h"

namespace zunto {

std::shared_ptr<MenuItem> MenuItem::separator() {
  auto item = std::make_shared<MenuItem>(std::string());
  item->enabled_ = false;
  item->separator_ = true;
  return item;
}

}  // namespace zunto
