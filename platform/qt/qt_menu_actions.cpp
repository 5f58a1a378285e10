#include "platform/qt/qt_menu_actions.h"

#include <QKeySequence>
#include <utility>

#include "platform/qt/qt_text.h"

namespace zunto {

namespace {

void mirror(QAction& action, const MenuItem& item) {
  action.setText(withoutMnemonic(item.title()));
  action.setEnabled(item.isEnabled());
}

std::unique_ptr<QAction> makeAction(const std::shared_ptr<MenuItem>& item) {
  auto action = std::make_unique<QAction>();
  // Qt would move items that are called "Quit" and the like elsewhere on some desktops.
  action->setMenuRole(QAction::NoRole);
  action->setSeparator(item->isSeparator());
  if (const std::optional<char> key = item->keyEquivalent()) {
    action->setShortcut(
        QKeySequence(QLatin1String("Ctrl+") + QChar::fromLatin1(*key).toUpper(), QKeySequence::PortableText));
    action->setAutoRepeat(false);
  }
  QObject::connect(action.get(), &QAction::triggered, action.get(), [item] { item->userChose(); });
  return action;
}

}  // namespace

QtMenuActions::QtMenuActions(std::shared_ptr<const Menu> menu) : menu_(std::move(menu)) {
  if (!menu_) return;
  for (const std::shared_ptr<MenuItem>& item : menu_->items()) {
    std::unique_ptr<QAction> action = makeAction(item);
    if (item->isSeparator()) {
      items_.push_back({std::move(action), {}});
      continue;
    }
    mirror(*action, *item);
    auto changes = item->observe([shown = action.get(), model = item.get()] { mirror(*shown, *model); });
    items_.push_back({std::move(action), std::move(changes)});
  }
}

QList<QAction*> QtMenuActions::actions() const {
  QList<QAction*> result;
  for (const Item& item : items_) result.append(item.action.get());
  return result;
}

}  // namespace zunto
