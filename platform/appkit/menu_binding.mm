#import "platform/appkit/menu_binding.h"

#include <string>
#include <utility>

#include "async/main_thread.h"
#import "platform/appkit/text.h"

NS_ASSUME_NONNULL_BEGIN

/// The target of all items of one menu. An item's tag is its index in the model.
@interface ZUNTOMenuTarget : NSObject <NSMenuItemValidation> {
 @private
  std::shared_ptr<const zunto::Menu> _menu;
  zunto::MainThread _mainThread;
}
- (instancetype)initWithMenu:(std::shared_ptr<const zunto::Menu>)menu;
- (void)chooseItem:(NSMenuItem*)item;
- (BOOL)worksWhenModal;
@end

NS_ASSUME_NONNULL_END

@implementation ZUNTOMenuTarget

- (instancetype)initWithMenu:(std::shared_ptr<const zunto::Menu>)menu {
  self = [super init];
  if (self) _menu = std::move(menu);
  return self;
}

- (void)chooseItem:(NSMenuItem*)item {
  _mainThread.check("chooseItem:");
  const std::shared_ptr<zunto::MenuItem> model = _menu->items().at(static_cast<std::size_t>([item tag]));
  model->userChose();
}

// While a modal dialog stands, the system disables the items of a target that does not answer this. The menu
// shows the model's state then, too: quitting is always possible.
- (BOOL)worksWhenModal {
  _mainThread.check("worksWhenModal");
  return YES;
}

- (BOOL)validateMenuItem:(NSMenuItem*)item {
  _mainThread.check("validateMenuItem:");
  return _menu->items().at(static_cast<std::size_t>([item tag]))->isEnabled();
}

@end

namespace zunto {
namespace {

void mirrorItem(const MenuItem& model, NSMenuItem* native) {
  if (toUtf8([native title]) != model.title()) [native setTitle:toNSString(model.title()).get()];
  if ([native isEnabled] != model.isEnabled()) [native setEnabled:model.isEnabled()];
}

}  // namespace

MenuBinding::MenuBinding(std::shared_ptr<const Menu> model)
    : model_(std::move(model)),
      native_(Retained<NSMenu>::adopt([[NSMenu alloc] init])),
      target_(Retained<ZUNTOMenuTarget>::adopt([[ZUNTOMenuTarget alloc] initWithMenu:model_])) {
  NSInteger index = 0;
  for (const std::shared_ptr<MenuItem>& item : model_->items()) addItem(*item, index++);
}

MenuBinding::~MenuBinding() {
  for (NSMenuItem* item in [native_.get() itemArray]) [item setTarget:nil];
}

void MenuBinding::addItem(MenuItem& model, NSInteger index) {
  if (model.isSeparator()) {
    [native_.get() addItem:[NSMenuItem separatorItem]];
    return;
  }
  const std::string key = model.keyEquivalent() ? std::string(1, *model.keyEquivalent()) : std::string();
  const auto item = Retained<NSMenuItem>::adopt([[NSMenuItem alloc]
      initWithTitle:toNSString(model.title()).get()
             action:model.hasAction() ? @selector(chooseItem:) : nullptr
      keyEquivalent:toNSString(key).get()]);
  if (model.hasAction()) [item.get() setTarget:target_.get()];
  [item.get() setTag:index];
  [native_.get() addItem:item.get()];
  mirrorItem(model, item.get());
  subscriptions_.push_back(model.observe([&model, item] { mirrorItem(model, item.get()); }));
}

}  // namespace zunto
