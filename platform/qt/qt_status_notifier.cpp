#include "platform/qt/qt_status_notifier.h"

#include <QCoreApplication>
#include <QCursor>
#include <QDBusArgument>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QtEndian>
#include <chrono>
#include <utility>

#include "platform/qt/qt_activation.h"
#include "platform/qt/qt_status_icon.h"
#include "platform/qt/qt_text.h"

namespace zunto {

namespace {

constexpr QLatin1String itemInterface("org.kde.StatusNotifierItem");
constexpr QLatin1String itemPath("/StatusNotifierItem");
constexpr QLatin1String menuPath("/MenuBar");
constexpr QLatin1String watcherName("org.kde.StatusNotifierWatcher");
constexpr QLatin1String watcherPath("/StatusNotifierWatcher");
constexpr QLatin1String watcherInterface("org.kde.StatusNotifierWatcher");
constexpr QLatin1String hostNamePrefix("org.kde.StatusNotifierHost-");

struct WirePixmap {
  int width = 0;
  int height = 0;
  QByteArray pixels;  ///< ARGB, big-endian
};

struct WireToolTip {
  QString iconName;
  QList<WirePixmap> icon;
  QString title;
  QString description;
};

QDBusArgument& operator<<(QDBusArgument& out, const WirePixmap& pixmap) {
  out.beginStructure();
  out << pixmap.width << pixmap.height << pixmap.pixels;
  out.endStructure();
  return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, WirePixmap& pixmap) {
  in.beginStructure();
  in >> pixmap.width >> pixmap.height >> pixmap.pixels;
  in.endStructure();
  return in;
}

QDBusArgument& operator<<(QDBusArgument& out, const WireToolTip& tip) {
  out.beginStructure();
  out << tip.iconName << tip.icon << tip.title << tip.description;
  out.endStructure();
  return out;
}

const QDBusArgument& operator>>(const QDBusArgument& in, WireToolTip& tip) {
  in.beginStructure();
  in >> tip.iconName >> tip.icon >> tip.title >> tip.description;
  in.endStructure();
  return in;
}

/// Registering again changes nothing.
void registerTypes() {
  qDBusRegisterMetaType<WirePixmap>();
  qDBusRegisterMetaType<QList<WirePixmap>>();
  qDBusRegisterMetaType<WireToolTip>();
}

WirePixmap wirePixmap(int side, StatusMark mark) {
  const QImage image = drawStatusIcon(side, mark).convertToFormat(QImage::Format_ARGB32);
  WirePixmap result{side, side, QByteArray(static_cast<qsizetype>(side) * side * 4, '\0')};
  auto* out = reinterpret_cast<uchar*>(result.pixels.data());
  for (int y = 0; y < side; ++y) {
    for (int x = 0; x < side; ++x, out += 4) qToBigEndian<quint32>(image.pixel(x, y), out);
  }
  return result;
}

QList<WirePixmap> wireIcon(const QString& title) {
  QList<WirePixmap> result;
  for (const int side : {16, 22, 24, 32, 48, 64}) result.append(wirePixmap(side, statusMarkIn(title)));
  return result;
}

constexpr const char* itemDescription = R"xml(
  <interface name="org.kde.StatusNotifierItem">
    <property name="Category" type="s" access="read"/>
    <property name="Id" type="s" access="read"/>
    <property name="Title" type="s" access="read"/>
    <property name="Status" type="s" access="read"/>
    <property name="WindowId" type="i" access="read"/>
    <property name="IconThemePath" type="s" access="read"/>
    <property name="Menu" type="o" access="read"/>
    <property name="ItemIsMenu" type="b" access="read"/>
    <property name="IconName" type="s" access="read"/>
    <property name="IconPixmap" type="a(iiay)" access="read"/>
    <property name="OverlayIconName" type="s" access="read"/>
    <property name="OverlayIconPixmap" type="a(iiay)" access="read"/>
    <property name="AttentionIconName" type="s" access="read"/>
    <property name="AttentionIconPixmap" type="a(iiay)" access="read"/>
    <property name="AttentionMovieName" type="s" access="read"/>
    <property name="ToolTip" type="(sa(iiay)ss)" access="read"/>
    <property name="IconAccessibleDesc" type="s" access="read"/>
    <method name="ContextMenu"><arg type="i" direction="in"/><arg type="i" direction="in"/></method>
    <method name="Activate"><arg type="i" direction="in"/><arg type="i" direction="in"/></method>
    <method name="SecondaryActivate"><arg type="i" direction="in"/><arg type="i" direction="in"/></method>
    <method name="ProvideXdgActivationToken"><arg type="s" direction="in"/></method>
    <method name="Scroll"><arg type="i" direction="in"/><arg type="s" direction="in"/></method>
    <signal name="NewTitle"/>
    <signal name="NewIcon"/>
    <signal name="NewToolTip"/>
    <signal name="NewMenu"/>
  </interface>
)xml";

/// How long windows go without the menu before the desktop has said whether it shows it.
constexpr std::chrono::milliseconds patienceWithHost(500);

/// How long a host may take to come, or to come back: it shall not find an icon of the older kind beside its
/// own.
constexpr std::chrono::seconds patienceWithRestarts(2);

/// A call to the bus itself. Its answer, if any, is nobody's business: a bus may take its time.
QDBusMessage busCall(const QString& method, const QVariantList& arguments) {
  QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                                     QStringLiteral("/org/freedesktop/DBus"),
                                                     QStringLiteral("org.freedesktop.DBus"), method);
  call.setArguments(arguments);
  return call;
}

QDBusMessage watcherCall(const QString& interface, const QString& method, const QVariantList& arguments) {
  QDBusMessage call = QDBusMessage::createMethodCall(watcherName, watcherPath, interface, method);
  call.setAutoStartService(false);
  call.setArguments(arguments);
  return call;
}

}  // namespace

QtStatusNotifier::QtStatusNotifier(QDBusConnection bus, QtDisplay display, StatusItem& item,
                                   QtStatusMenu& statusMenu)
    : bus_(std::move(bus)),
      display_(display),
      item_(item),
      statusMenu_(statusMenu),
      serviceName_(QStringLiteral("org.kde.StatusNotifierItem-%1-1").arg(QCoreApplication::applicationPid())),
      object_(bus_, itemPath,
              {.interface = itemInterface,
               .description = QString::fromLatin1(itemDescription),
               .properties = [this] { return properties(); },
               .call = [this](const QDBusMessage& call,
                              const QDBusConnection& from) { return answer(call, from); }}),
      olderTray_(item),
      watcherPresence_(watcherName, bus_, QDBusServiceWatcher::WatchForOwnerChange),
      hostPresence_(QStringLiteral("org.kde*"), bus_, QDBusServiceWatcher::WatchForOwnerChange) {
  registerTypes();
  constexpr uint doNotQueue = 4;
  bus_.send(busCall(QStringLiteral("RequestName"), {serviceName_, doNotQueue}));
  offerMenu();
  shownTitle_ = toQString(item_.buttonTitle());
  changes_ = item_.observe([this] { mirror(); });

  QObject::connect(&watcherPresence_, &QDBusServiceWatcher::serviceOwnerChanged, &replyContext_,
                   [this](const QString&, const QString&, const QString& owner) {
                     if (owner.isEmpty()) {
                       watcherHasHost_ = false;
                       judgeHosts();
                     } else {
                       announce();
                     }
                   });
  QObject::connect(&hostPresence_, &QDBusServiceWatcher::serviceOwnerChanged, &replyContext_,
                   [this](const QString& name, const QString&, const QString& owner) {
                     if (name.startsWith(hostNamePrefix)) hostNameChanged(name, !owner.isEmpty());
                   });
  withoutHost_.setSingleShot(true);
  withoutHost_.setInterval(patienceWithRestarts);
  QObject::connect(&withoutHost_, &QTimer::timeout, &replyContext_, [this] {
    olderTrayIsDue_ = true;
    askForHost();
  });
  hostNews_.setSingleShot(true);
  QObject::connect(&hostNews_, &QTimer::timeout, &replyContext_, [this] { askForHost(); });
  for (const char* news : {"StatusNotifierHostRegistered", "StatusNotifierHostUnregistered"}) {
    // Of any sender: for a named one Qt would wait until the bus has said who that is.
    bus_.connect(QString(), watcherPath, watcherInterface, QString::fromLatin1(news), &hostNews_,
                 SLOT(start()));
  }
  // The end of the bus itself is news too: nobody is there to report the watcher's.
  bus_.connect(QString(), QStringLiteral("/org/freedesktop/DBus/Local"),
               QStringLiteral("org.freedesktop.DBus.Local"), QStringLiteral("Disconnected"), &hostNews_,
               SLOT(start()));
  statusMenu_.setHost(QtStatusMenu::Host::unknown);
  askForHostNames();
  announce();
  QTimer::singleShot(patienceWithHost, &replyContext_, [this] {
    if (statusMenu_.host() == QtStatusMenu::Host::unknown) statusMenu_.setHost(QtStatusMenu::Host::none);
  });
}

QtStatusNotifier::~QtStatusNotifier() {
  statusMenu_.setHost(QtStatusMenu::Host::none);
  // The watcher forgets the item when its name is gone.
  bus_.send(busCall(QStringLiteral("ReleaseName"), {serviceName_}));
}

void QtStatusNotifier::announce() {
  const QDBusPendingCall call = bus_.asyncCall(
      watcherCall(watcherInterface, QStringLiteral("RegisterStatusNotifierItem"), {serviceName_}));
  auto watcher = std::make_unique<QDBusPendingCallWatcher>(call, &replyContext_);
  QObject::connect(watcher.get(), &QDBusPendingCallWatcher::finished, &replyContext_,
                   [this](QDBusPendingCallWatcher* finished) {
                     finished->deleteLater();
                     if (finished->isError()) {
                       watcherHasHost_ = false;
                       judgeHosts();
                     } else {
                       askForHost();
                     }
                   });
  static_cast<void>(watcher.release());  // its parent owns it
}

void QtStatusNotifier::askForHost() {
  const QDBusPendingCall call = bus_.asyncCall(
      watcherCall(QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("Get"),
                  {QString(watcherInterface), QStringLiteral("IsStatusNotifierHostRegistered")}));
  auto watcher = std::make_unique<QDBusPendingCallWatcher>(call, &replyContext_);
  QObject::connect(watcher.get(), &QDBusPendingCallWatcher::finished, &replyContext_,
                   [this](QDBusPendingCallWatcher* finished) {
                     finished->deleteLater();
                     const QDBusPendingReply<QDBusVariant> reply = *finished;
                     watcherHasHost_ = !reply.isError() && reply.value().variant().toBool();
                     judgeHosts();
                     // The bus and the watcher have just answered, so they will answer Qt, too.
                     if (olderTrayIsDue_ && bus_.isConnected()) olderTray_.offer();
                   });
  static_cast<void>(watcher.release());  // its parent owns it
}

void QtStatusNotifier::askForHostNames() {
  const QDBusPendingCall call = bus_.asyncCall(busCall(QStringLiteral("ListNames"), {}));
  auto watcher = std::make_unique<QDBusPendingCallWatcher>(call, &replyContext_);
  QObject::connect(watcher.get(), &QDBusPendingCallWatcher::finished, &replyContext_,
                   [this](QDBusPendingCallWatcher* finished) {
                     finished->deleteLater();
                     const QDBusPendingReply<QStringList> reply = *finished;
                     if (reply.isError()) return;
                     for (const QString& name : reply.value()) {
                       if (name.startsWith(hostNamePrefix)) hostNameChanged(name, true);
                     }
                   });
  static_cast<void>(watcher.release());  // its parent owns it
}

void QtStatusNotifier::hostNameChanged(const QString& name, bool isThere) {
  if (isThere) {
    hostNames_.insert(name);
    hostsHaveNames_ = true;
    hostNews_.start();
  } else {
    hostNames_.remove(name);
    judgeHosts();
  }
}

/// Some watchers go on saying that there is a host when the last one has died. Those that mean a host without
/// a name on the bus are believed as long as none had one.
void QtStatusNotifier::judgeHosts() {
  const bool areGone = hostsHaveNames_ && hostNames_.isEmpty();
  const bool isShown = watcherHasHost_ && !areGone;
  statusMenu_.setHost(isShown ? QtStatusMenu::Host::shows : QtStatusMenu::Host::none);
  considerOlderTray(isShown);
}

void QtStatusNotifier::considerOlderTray(bool isShown) {
  if (display_ != QtDisplay::x11) return;
  if (isShown) {
    withoutHost_.stop();
    olderTrayIsDue_ = false;
    olderTray_.withdraw();
  } else if (!olderTrayIsDue_ && !withoutHost_.isActive()) {
    withoutHost_.start();
  }
}

void QtStatusNotifier::mirror() {
  if (item_.menu() != offered_) {
    offerMenu();
    object_.emitSignal(QStringLiteral("NewMenu"));
    tellStatusLine();
  }
  const QString title = toQString(item_.buttonTitle());
  if (title == std::exchange(shownTitle_, title)) return;
  for (const char* news : {"NewTitle", "NewIcon", "NewToolTip"})
    object_.emitSignal(QString::fromLatin1(news));
}

/// The picture's description is read anew with the picture.
void QtStatusNotifier::tellStatusLine() {
  for (const char* news : {"NewIcon", "NewToolTip"}) object_.emitSignal(QString::fromLatin1(news));
}

void QtStatusNotifier::offerMenu() {
  offered_ = item_.menu();
  actions_.emplace(offered_);
  popUpMenu_.addActions(actions_->actions());
  menu_.reset();  // two objects cannot stand at one path
  menu_ = std::make_unique<QtDBusMenu>(bus_, menuPath, offered_, [this](const MenuItem& item) {
    const QtActivation activation(std::exchange(activationToken_, {}));
    item.userChose();
  });
  const std::shared_ptr<MenuItem> line = statusLine();
  statusLineChanges_ = line ? line->observe([this] { tellStatusLine(); }) : Observable::Subscription();
}

/// What the menu says before it offers anything.
std::shared_ptr<MenuItem> QtStatusNotifier::statusLine() const {
  if (!offered_ || offered_->items().empty() || offered_->items().front()->hasAction()) return nullptr;
  return offered_->items().front();
}

QVariantMap QtStatusNotifier::properties() const {
  const QString title = toQString(item_.buttonTitle());
  const std::shared_ptr<MenuItem> line = statusLine();
  const QString status = line ? toQString(line->title()) : QString();
  const QVariant noIcon = QVariant::fromValue(QList<WirePixmap>());
  return {{QStringLiteral("Category"), QStringLiteral("ApplicationStatus")},
          {QStringLiteral("Id"), QStringLiteral("zunto-helper")},
          {QStringLiteral("Title"), title},
          {QStringLiteral("Status"), QStringLiteral("Active")},
          {QStringLiteral("WindowId"), 0},
          {QStringLiteral("IconThemePath"), QString()},
          {QStringLiteral("Menu"), QVariant::fromValue(QDBusObjectPath(QString(menuPath)))},
          {QStringLiteral("ItemIsMenu"), true},
          {QStringLiteral("IconName"), QString()},
          {QStringLiteral("IconPixmap"), QVariant::fromValue(wireIcon(title))},
          {QStringLiteral("OverlayIconName"), QString()},
          {QStringLiteral("OverlayIconPixmap"), noIcon},
          {QStringLiteral("AttentionIconName"), QString()},
          {QStringLiteral("AttentionIconPixmap"), noIcon},
          {QStringLiteral("AttentionMovieName"), QString()},
          {QStringLiteral("ToolTip"), QVariant::fromValue(WireToolTip{QString(), {}, title, status})},
          {QStringLiteral("IconAccessibleDesc"), status}};
}

bool QtStatusNotifier::answer(const QDBusMessage& call, const QDBusConnection& bus) {
  const QString request = call.member() + QLatin1Char(' ') + call.signature();
  const bool isMenu = request == QLatin1String("Activate ii") || request == QLatin1String("ContextMenu ii") ||
                      request == QLatin1String("SecondaryActivate ii");
  if (isMenu) {
    // A host that hears that there is no such method shows the menu itself. Under Wayland nobody else can put
    // it beside the pointer.
    if (display_ != QtDisplay::x11) return false;
    bus.send(call.createReply());
    // The item is nothing but its menu. Not every host knows where the pointer is.
    popUpMenu_.popup(QCursor::pos());
    return true;
  }
  if (request == QLatin1String("ProvideXdgActivationToken s")) {
    activationToken_ = fromQString(call.arguments()[0].toString());
  } else if (request != QLatin1String("Scroll is")) {
    return false;
  }
  bus.send(call.createReply());
  return true;
}

}  // namespace zunto
