// One status item on the bus (org.kde.StatusNotifierItem), announced to the desktop's watcher whenever there
// is one.
//
// Owner: the QtStatusBar. Thread: main thread only.
#pragma once

#include <QDBusConnection>
#include <QDBusServiceWatcher>
#include <QMenu>
#include <QSet>
#include <QTimer>
#include <memory>
#include <optional>
#include <string>

#include "platform/model/status_item.h"
#include "platform/qt/qt_dbus_menu.h"
#include "platform/qt/qt_dbus_object.h"
#include "platform/qt/qt_display.h"
#include "platform/qt/qt_menu_actions.h"
#include "platform/qt/qt_status_menu.h"
#include "platform/qt/qt_tray_icon.h"

namespace zunto {

class QtStatusNotifier {
 public:
  /// Shows `item` while this object lives, and tells `statusMenu` whether a host of the desktop shows it:
  /// unknown at first, for half a second at most. Both must outlive this object.
  QtStatusNotifier(QDBusConnection bus, QtDisplay display, StatusItem& item, QtStatusMenu& statusMenu);
  QtStatusNotifier(const QtStatusNotifier&) = delete;
  QtStatusNotifier& operator=(const QtStatusNotifier&) = delete;
  ~QtStatusNotifier();

 private:
  void mirror();
  void offerMenu();
  void announce();
  void askForHost();
  void askForHostNames();
  void hostNameChanged(const QString& name, bool isThere);
  void judgeHosts();
  void considerOlderTray(bool isShown);
  void tellStatusLine();
  [[nodiscard]] std::shared_ptr<MenuItem> statusLine() const;
  [[nodiscard]] QVariantMap properties() const;
  bool answer(const QDBusMessage& call, const QDBusConnection& bus);

  QDBusConnection bus_;
  QtDisplay display_;
  StatusItem& item_;
  QtStatusMenu& statusMenu_;
  QString serviceName_;
  std::shared_ptr<const Menu> offered_;
  QMenu popUpMenu_;  ///< for hosts that ask the program to show the menu itself
  std::optional<QtMenuActions> actions_;
  std::unique_ptr<QtDBusMenu> menu_;
  QtDBusObject object_;
  QtTrayIcon olderTray_;
  QTimer withoutHost_;           ///< since the last host has gone
  bool olderTrayIsDue_ = false;  ///< no host has come for a while
  QDBusServiceWatcher watcherPresence_;
  QDBusServiceWatcher hostPresence_;
  bool watcherHasHost_ = false;  ///< as the watcher says
  QSet<QString> hostNames_;      ///< of the hosts that have one on the bus
  bool hostsHaveNames_ = false;  ///< whether there ever was one
  std::string activationToken_;  ///< for what the user chooses next
  QTimer hostNews_;              ///< a turn after the watcher has reported a change of its hosts
  QObject replyContext_;         ///< replies that are under way end with it
  QString shownTitle_;
  Observable::Subscription changes_;
  Observable::Subscription statusLineChanges_;
};

}  // namespace zunto
