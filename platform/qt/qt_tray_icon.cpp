#include "platform/qt/qt_tray_icon.h"

#include <QCursor>

#include "platform/qt/qt_status_icon.h"
#include "platform/qt/qt_text.h"

namespace zunto {

QtTrayIcon::~QtTrayIcon() = default;

void QtTrayIcon::offer() {
  if (!icon_) {
    icon_ = std::make_unique<QSystemTrayIcon>();
    icon_->setContextMenu(&menu_);
    QObject::connect(icon_.get(), &QSystemTrayIcon::activated, &menu_,
                     [this](QSystemTrayIcon::ActivationReason reason) {
                       // The item is nothing but its menu, which Qt shows for the other button by itself.
                       if (reason != QSystemTrayIcon::Context) menu_.popup(QCursor::pos());
                     });
    changes_ = item_.observe([this] { mirror(); });
  }
  mirror();
  icon_->show();
}

void QtTrayIcon::withdraw() {
  if (icon_) icon_->hide();
}

void QtTrayIcon::mirror() {
  if (item_.menu() != offered_ || !actions_) {
    offered_ = item_.menu();
    actions_.emplace(offered_);
    menu_.addActions(actions_->actions());
  }
  const QString title = toQString(item_.buttonTitle());
  icon_->setIcon(makeStatusIcon(statusMarkIn(title)));
  icon_->setToolTip(title);
}

}  // namespace zunto
