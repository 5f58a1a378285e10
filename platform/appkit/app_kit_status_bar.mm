#import "platform/appkit/app_kit_status_bar.h"

#import <Cocoa/Cocoa.h>

#include <memory>
#include <optional>
#include <string>

#import "platform/appkit/menu_binding.h"
#import "platform/appkit/retained.h"
#import "platform/appkit/text.h"

namespace zunto {
namespace {

/// A model together with the native item that shows it: the one lives as long as the other.
class ShownStatusItem {
 public:
  ShownStatusItem()
      : native_([[NSStatusBar systemStatusBar] statusItemWithLength:NSVariableStatusItemLength]),
        model_([native_.get() button] == nil ? StatusItem::Button::absent : StatusItem::Button::present) {
    subscription_ = model_.observe([this] { mirror(); });
  }
  ShownStatusItem(const ShownStatusItem&) = delete;
  ShownStatusItem& operator=(const ShownStatusItem&) = delete;
  ~ShownStatusItem() { [[NSStatusBar systemStatusBar] removeStatusItem:native_.get()]; }

  [[nodiscard]] StatusItem& model() { return model_; }

 private:
  void mirror() {
    const std::string title = model_.buttonTitle();
    NSButton* button = [native_.get() button];
    if (toUtf8([button title]) != title) [button setTitle:toNSString(title).get()];
    if (model_.menu() == shownMenu_) return;
    shownMenu_ = model_.menu();
    menu_.reset();
    if (shownMenu_) menu_.emplace(shownMenu_);
    [native_.get() setMenu:menu_ ? menu_->menu() : nil];
  }

  Retained<NSStatusItem> native_;
  StatusItem model_;
  std::shared_ptr<const Menu> shownMenu_;
  std::optional<MenuBinding> menu_;
  Observable::Subscription subscription_;
};

}  // namespace

std::shared_ptr<StatusItem> AppKitStatusBar::makeStatusItem() {
  const auto shown = std::make_shared<ShownStatusItem>();
  return {shown, &shown->model()};
}

}  // namespace zunto
