// The program's item in the desktop's status bar: a button with a title, and a menu.
//
// Owner: the program shares it with the bar that shows it. Thread: main thread only.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/model/menu.h"
#include "platform/model/observable.h"

namespace zunto {

class StatusItem final : public Observable {
 public:
  enum class Button { present, absent };

  explicit StatusItem(Button button = Button::present) {
    if (button == Button::present) buttonTitle_.emplace();
  }

  /// Some bars give an item no button, so nothing to put a title on.
  [[nodiscard]] bool hasButton() const { return buttonTitle_.has_value(); }

  /// Empty where there is no button.
  [[nodiscard]] std::string buttonTitle() const { return buttonTitle_.value_or(std::string()); }

  /// Ignored where there is no button.
  void setButtonTitle(std::string title) {
    if (buttonTitle_) assign(*buttonTitle_, std::move(title));
  }

  /// None until one is set.
  [[nodiscard]] const std::shared_ptr<const Menu>& menu() const { return menu_; }
  void setMenu(std::shared_ptr<const Menu> menu) { assign(menu_, std::move(menu)); }

 private:
  std::optional<std::string> buttonTitle_;
  std::shared_ptr<const Menu> menu_;
};

}  // namespace zunto
