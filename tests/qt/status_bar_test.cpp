#include "platform/qt/qt_status_bar.h"

#include <gtest/gtest.h>

#include <QCursor>
#include <QDBusArgument>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QElapsedTimer>
#include <QImage>
#include <QTimer>
#include <memory>
#include <optional>

#include "platform/qt/qt_dbus_object.h"
#include "platform/qt/qt_status_icon.h"
#include "tests/qt/private_bus.h"
#include "tests/qt/qt_world.h"

namespace zunto::testing {
namespace {

/// The desktop's watcher, with or without a host that shows items.
class Watcher {
 public:
  Watcher(QDBusConnection bus, bool hasHost)
      : bus_(bus),
        hasHost_(hasHost),
        object_(bus, QStringLiteral("/StatusNotifierWatcher"),
                {.interface = QStringLiteral("org.kde.StatusNotifierWatcher"),
                 .description = QString(),
                 .properties =
                     [this] {
                       return QVariantMap{{QStringLiteral("IsStatusNotifierHostRegistered"), hasHost_}};
                     },
                 .call = [this](const QDBusMessage& call,
                                const QDBusConnection& from) { return answer(call, from); }}) {
    bus_.registerService(QStringLiteral("org.kde.StatusNotifierWatcher"));
  }
  Watcher(const Watcher&) = delete;
  Watcher& operator=(const Watcher&) = delete;
  ~Watcher() { bus_.unregisterService(QStringLiteral("org.kde.StatusNotifierWatcher")); }

  void setHasHost(bool hasHost) {
    hasHost_ = hasHost;
    object_.emitSignal(hasHost ? QStringLiteral("StatusNotifierHostRegistered")
                               : QStringLiteral("StatusNotifierHostUnregistered"));
  }
  [[nodiscard]] const QStringList& registered() const { return registered_; }

 private:
  bool answer(const QDBusMessage& call, const QDBusConnection& from) {
    if (call.member() != QLatin1String("RegisterStatusNotifierItem")) return false;
    registered_.append(call.arguments()[0].toString());
    from.send(call.createReply());
    return true;
  }

  QDBusConnection bus_;
  bool hasHost_;
  QStringList registered_;
  QtDBusObject object_;
};

class QtStatusItems : public QtTest {
 protected:
  void makeItem() { makeItem(bar); }
  void makeItem(QtStatusBar& in) {
    item = in.makeStatusItem();
    item->setButtonTitle("Z/UNTO");
    auto menu = std::make_shared<Menu>();
    status->setEnabled(false);
    menu->addItem(status);
    menu->addItem(MenuItem::separator());
    menu->addItem(std::make_shared<MenuItem>(
        "Open_Downloader", [this] { ++opened; }, 'd'));
    item->setMenu(menu);
  }
  bool isShown(bool shown) {
    const auto host = shown ? QtStatusMenu::Host::shows : QtStatusMenu::Host::none;
    return runUntil([this, host] { return bar.statusMenu().host() == host; });
  }
  /// What the item answers to a call of the desktop.
  QDBusMessage ask(const QString& path, const QString& interface, const QString& method,
                   const QVariantList& arguments) {
    QDBusMessage call = QDBusMessage::createMethodCall(program.baseService(), path, interface, method);
    call.setArguments(arguments);
    const QDBusPendingCall pending = desktop.asyncCall(call);
    EXPECT_TRUE(runUntil([&pending] { return pending.isFinished(); }));
    return pending.reply();
  }
  QVariant property(const char* name) {
    const QDBusMessage reply =
        ask(QStringLiteral("/StatusNotifierItem"), QStringLiteral("org.freedesktop.DBus.Properties"),
            QStringLiteral("Get"), {QStringLiteral("org.kde.StatusNotifierItem"), QString::fromLatin1(name)});
    return reply.arguments()[0].value<QDBusVariant>().variant();
  }
  QDBusMessage askItem(const char* method, const QVariantList& arguments) {
    return ask(QStringLiteral("/StatusNotifierItem"), QStringLiteral("org.kde.StatusNotifierItem"),
               QString::fromLatin1(method), arguments);
  }
  QDBusMessage askMenu(const char* method, const QVariantList& arguments) {
    return ask(QStringLiteral("/MenuBar"), QStringLiteral("com.canonical.dbusmenu"),
               QString::fromLatin1(method), arguments);
  }

  PrivateBus bus;
  QDBusConnection program = bus.connect();
  QDBusConnection desktop = bus.connect();
  QtStatusBar bar{program};
  std::shared_ptr<MenuItem> status = std::make_shared<MenuItem>("Starting…");
  int opened = 0;
  std::shared_ptr<StatusItem> item;
};

TEST_F(QtStatusItems, IsNotShownWithoutAWatcher) {
  makeItem();
  EXPECT_TRUE(isShown(false));
}

TEST_F(QtStatusItems, LeavesItOpenWhoShowsItUntilTheDesktopHasAnswered) {
  const Watcher watcher(desktop, true);
  makeItem();
  EXPECT_EQ(bar.statusMenu().host(), QtStatusMenu::Host::unknown);
  std::vector<QtStatusMenu::Host> seen;
  const auto changes = bar.statusMenu().observe([&] { seen.push_back(bar.statusMenu().host()); });
  EXPECT_TRUE(isShown(true));
  EXPECT_EQ(seen, std::vector{QtStatusMenu::Host::shows});
}

TEST_F(QtStatusItems, ADesktopThatDoesNotAnswerShowsNothing) {
  bus.hang();
  makeItem();
  EXPECT_EQ(bar.statusMenu().host(), QtStatusMenu::Host::unknown);
  EXPECT_TRUE(isShown(false));
}

TEST_F(QtStatusItems, RegistersWithTheWatcherThatIsThere) {
  const Watcher watcher(desktop, true);
  makeItem();
  EXPECT_TRUE(isShown(true));
  ASSERT_EQ(watcher.registered().size(), 1);
  EXPECT_TRUE(watcher.registered()[0].startsWith(QLatin1String("org.kde.StatusNotifierItem-")));
}

TEST_F(QtStatusItems, RegistersAnewWithEveryWatcherThatComes) {
  makeItem();
  auto watcher = std::make_unique<Watcher>(desktop, true);
  EXPECT_TRUE(isShown(true));
  watcher.reset();
  EXPECT_TRUE(isShown(false));
  watcher = std::make_unique<Watcher>(desktop, true);
  EXPECT_TRUE(isShown(true));
  EXPECT_EQ(watcher->registered().size(), 1);
}

TEST_F(QtStatusItems, FollowsTheHostsComingAndGoing) {
  Watcher watcher(desktop, false);
  makeItem();
  ASSERT_TRUE(runUntil([&watcher] { return !watcher.registered().isEmpty(); }));
  EXPECT_TRUE(isShown(false));
  watcher.setHasHost(true);
  EXPECT_TRUE(isShown(true));
  watcher.setHasHost(false);
  EXPECT_TRUE(isShown(false));
}

TEST_F(QtStatusItems, FollowsTheHostsNamesWhereTheWatcherDoesNot) {
  const Watcher watcher(desktop, true);
  QDBusConnection panel = bus.connect();
  const QString name = QStringLiteral("org.kde.StatusNotifierHost-4711");
  ASSERT_TRUE(panel.registerService(name));
  makeItem();
  EXPECT_TRUE(isShown(true));
  panel.unregisterService(name);
  EXPECT_TRUE(isShown(false));
  panel.registerService(name);
  EXPECT_TRUE(isShown(true));
}

TEST_F(QtStatusItems, BelievesTheWatcherOfAHostThatHasNoName) {
  const Watcher watcher(desktop, true);
  QDBusConnection other = bus.connect();
  makeItem();
  EXPECT_TRUE(isShown(true));
  other.registerService(QStringLiteral("org.kde.Something"));
  other.unregisterService(QStringLiteral("org.kde.Something"));
  runTurns();
  EXPECT_EQ(bar.statusMenu().host(), QtStatusMenu::Host::shows);
}

TEST_F(QtStatusItems, TitleAndToolTipCarryTheStatusBarTitle) {
  makeItem();
  EXPECT_EQ(property("Title").toString().toStdString(), "Z/UNTO");
  EXPECT_EQ(property("Id").toString().toStdString(), "zunto-helper");
  EXPECT_TRUE(property("ItemIsMenu").toBool());
  item->setButtonTitle("Z/UNTO ●");
  EXPECT_EQ(fromQString(property("Title").toString()), "Z/UNTO ●");
  const auto tip = property("ToolTip").value<QDBusArgument>();
  EXPECT_EQ(tip.currentSignature().toStdString(), "(sa(iiay)ss)");
  EXPECT_EQ(property("IconPixmap").value<QDBusArgument>().currentSignature().toStdString(), "a(iiay)");
}

TEST_F(QtStatusItems, MenuHasTheItemsInTheirOrderWithTheirKeysInUpperCase) {
  makeItem();
  const QDBusMessage reply = askMenu("GetLayout", {0, -1, QStringList()});
  ASSERT_EQ(reply.signature().toStdString(), "u(ia{sv}av)");
  const auto root = reply.arguments()[1].value<QDBusArgument>();
  int identifier = -1;
  QVariantMap properties;
  QVariantList children;
  root.beginStructure();
  root >> identifier >> properties >> children;
  root.endStructure();
  EXPECT_EQ(identifier, 0);
  ASSERT_EQ(children.size(), 3);
  std::vector<QVariantMap> found;
  for (const QVariant& child : children) {
    const auto node = child.value<QDBusArgument>();
    node.beginStructure();
    node >> identifier >> properties;
    node.endStructure();
    found.push_back(properties);
  }
  EXPECT_EQ(fromQString(found[0][QStringLiteral("label")].toString()), "Starting…");
  EXPECT_FALSE(found[0][QStringLiteral("enabled")].toBool());
  EXPECT_EQ(found[1][QStringLiteral("type")].toString().toStdString(), "separator");
  EXPECT_EQ(found[2][QStringLiteral("label")].toString().toStdString(), "Open__Downloader");
  EXPECT_EQ(qdbus_cast<QList<QStringList>>(found[2][QStringLiteral("shortcut")]),
            (QList<QStringList>{{QStringLiteral("Control"), QStringLiteral("D")}}));
}

TEST_F(QtStatusItems, AClickOfTheDesktopChoosesTheItem) {
  makeItem();
  const QVariant nothing = QVariant::fromValue(QDBusVariant(0));
  EXPECT_EQ(askMenu("Event", {3, QStringLiteral("clicked"), nothing, 0U}).type(), QDBusMessage::ReplyMessage);
  EXPECT_EQ(opened, 1);
  askMenu("Event", {3, QStringLiteral("hovered"), nothing, 0U});
  askMenu("Event", {1, QStringLiteral("clicked"), nothing, 0U});
  askMenu("Event", {99, QStringLiteral("clicked"), nothing, 0U});
  EXPECT_EQ(opened, 1);
}

TEST_F(QtStatusItems, ANewTitleOfAnItemIsReadAtOnce) {
  makeItem();
  status->setTitle("ZUNTO Helper Ready");
  const QDBusMessage reply = askMenu("GetProperty", {1, QStringLiteral("label")});
  EXPECT_EQ(reply.arguments()[0].value<QDBusVariant>().variant().toString().toStdString(),
            "ZUNTO Helper Ready");
}

TEST_F(QtStatusItems, ToolTipAndDescriptionCarryTheStatusLine) {
  makeItem();
  QTimer heard;
  ASSERT_TRUE(desktop.connect(program.baseService(), QStringLiteral("/StatusNotifierItem"),
                              QStringLiteral("org.kde.StatusNotifierItem"), QStringLiteral("NewToolTip"),
                              &heard, SLOT(start())));
  status->setTitle("ZUNTO Helper Ready");
  EXPECT_TRUE(runUntil([&heard] { return heard.isActive(); }));
  EXPECT_EQ(property("IconAccessibleDesc").toString().toStdString(), "ZUNTO Helper Ready");
  const auto tip = property("ToolTip").value<QDBusArgument>();
  QString icon;
  QString title;
  QString description;
  tip.beginStructure();
  tip >> icon;
  tip.beginArray();
  tip.endArray();
  tip >> title >> description;
  tip.endStructure();
  EXPECT_EQ(title.toStdString(), "Z/UNTO");
  EXPECT_EQ(description.toStdString(), "ZUNTO Helper Ready");
}

TEST_F(QtStatusItems, ShowsItsMenuWhereThePointerIs) {
  makeItem();
  const QPoint pointer(300, 200);
  QCursor::setPos(pointer);
  for (const char* method : {"Activate", "SecondaryActivate", "ContextMenu"}) {
    EXPECT_EQ(askItem(method, {0, 27}).type(), QDBusMessage::ReplyMessage) << method;
    QWidget* menu = QApplication::activePopupWidget();
    ASSERT_NE(menu, nullptr) << method;
    EXPECT_EQ(menu->pos(), pointer) << method;
    menu->close();
  }
}

TEST_F(QtStatusItems, LeavesItsMenuToTheHostUnderWayland) {
  QtStatusBar underWayland(program, QtDisplay::wayland);
  makeItem(underWayland);
  for (const char* method : {"Activate", "SecondaryActivate", "ContextMenu"}) {
    EXPECT_EQ(askItem(method, {0, 27}).errorName().toStdString(), "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(QApplication::activePopupWidget(), nullptr) << method;
  }
  item.reset();  // the bar that it is of ends here
}

TEST_F(QtStatusItems, TakesATokenForWhatIsChosenNext) {
  makeItem();
  EXPECT_EQ(askItem("ProvideXdgActivationToken", {QStringLiteral("token")}).type(),
            QDBusMessage::ReplyMessage);
}

TEST_F(QtStatusItems, TellsTheDesktopOfNewTitles) {
  makeItem();
  QTimer heardOfItem;
  QTimer heardOfTitle;
  const auto listen = [this](const char* path, const char* interface, const char* name, QTimer& heard) {
    return desktop.connect(program.baseService(), QString::fromLatin1(path), QString::fromLatin1(interface),
                           QString::fromLatin1(name), &heard, SLOT(start()));
  };
  ASSERT_TRUE(listen("/MenuBar", "com.canonical.dbusmenu", "ItemsPropertiesUpdated", heardOfItem));
  ASSERT_TRUE(listen("/StatusNotifierItem", "org.kde.StatusNotifierItem", "NewTitle", heardOfTitle));
  status->setTitle("ZUNTO Helper Ready");
  EXPECT_TRUE(runUntil([&heardOfItem] { return heardOfItem.isActive(); }));
  EXPECT_FALSE(heardOfTitle.isActive());
  item->setButtonTitle("Z/UNTO ●");
  EXPECT_TRUE(runUntil([&heardOfTitle] { return heardOfTitle.isActive(); }));
}

TEST_F(QtStatusItems, SaysOfAMethodThatItDoesNotKnowThatThereIsNone) {
  makeItem();
  for (const char* method : {"XAyatanaSecondaryActivate", "Hover"}) {
    EXPECT_EQ(askItem(method, {0U}).errorName().toStdString(), "org.freedesktop.DBus.Error.UnknownMethod");
    EXPECT_EQ(askMenu(method, {0U}).errorName().toStdString(), "org.freedesktop.DBus.Error.UnknownMethod");
  }
  const QString properties = QStringLiteral("org.freedesktop.DBus.Properties");
  const QString path = QStringLiteral("/StatusNotifierItem");
  EXPECT_EQ(ask(path, properties, QStringLiteral("Set"), {0}).errorName().toStdString(),
            "org.freedesktop.DBus.Error.UnknownMethod");
  EXPECT_EQ(ask(path, properties, QStringLiteral("GetAll"), {QStringLiteral("org.example.Other")})
                .errorName()
                .toStdString(),
            "org.freedesktop.DBus.Error.UnknownInterface");
  EXPECT_EQ(ask(path, QStringLiteral("org.freedesktop.DBus.Introspectable"), QStringLiteral("Introspect"), {})
                .type(),
            QDBusMessage::ReplyMessage);
}

TEST_F(QtStatusItems, RefusesWhatItDoesNotKnow) {
  makeItem();
  EXPECT_EQ(askMenu("GetProperty", {1, QStringLiteral("colour")}).type(), QDBusMessage::ErrorMessage);
  EXPECT_EQ(askMenu("Destroy", {}).type(), QDBusMessage::ErrorMessage);
  EXPECT_EQ(askMenu("Event", {1}).type(), QDBusMessage::ErrorMessage);
}

TEST_F(QtStatusItems, GoesFromTheDesktopWithItsOwner) {
  const Watcher watcher(desktop, true);
  makeItem();
  ASSERT_TRUE(isShown(true));
  const QString name = watcher.registered()[0];
  item.reset();
  EXPECT_EQ(bar.statusMenu().host(), QtStatusMenu::Host::none);
  EXPECT_EQ(bar.statusMenu().item(), nullptr);
  EXPECT_TRUE(runUntil([&] { return !desktop.interface()->isServiceRegistered(name).value(); }));
}

TEST_F(QtStatusItems, OutlivesTheBus) {
  const Watcher watcher(desktop, true);
  makeItem();
  ASSERT_TRUE(isShown(true));
  bus.stop();
  ASSERT_TRUE(runUntil([this] { return !program.isConnected(); }));
  EXPECT_TRUE(isShown(false));
  item->setButtonTitle("Z/UNTO ●");
  item.reset();
  runTurns();
}

TEST_F(QtStatusItems, NeitherComingNorGoingWaitsForABusThatHangs) {
  bus.hang();
  QElapsedTimer timer;
  timer.start();
  makeItem();
  item->setButtonTitle("Z/UNTO ●");
  item.reset();
  EXPECT_LT(timer.elapsed(), 1000);
}

TEST_F(QtTest, StatusItemWithoutABusStaysInTheWindows) {
  QtStatusBar bar(std::nullopt);
  const auto item = bar.makeStatusItem();
  EXPECT_EQ(bar.statusMenu().item(), item);
  EXPECT_EQ(bar.statusMenu().host(), QtStatusMenu::Host::none);
}

TEST_F(QtTest, IconsStrokesEndBetweenPixels) {
  for (const int side : {16, 22, 24, 32, 48}) {
    const QImage icon = drawStatusIcon(side, StatusMark::none);
    const QRgb tile = icon.pixel(side / 2, side / 8);
    const int x = side * 2 / 5;
    int white = 0;
    for (int y = side / 8; y < side * 2 / 5; ++y) {  // above the slanting stroke
      const QRgb seen = icon.pixel(x, y);
      EXPECT_TRUE(seen == tile || seen == 0xffffffff) << side << ", row " << y;
      if (seen == 0xffffffff) ++white;
    }
    EXPECT_GE(white, 2) << side;
  }
}

TEST_F(QtTest, IconShowsADotForHealth) {
  for (const int side : {16, 22, 48}) {
    const QImage plain = drawStatusIcon(side, StatusMark::none);
    const QImage healthy = drawStatusIcon(side, StatusMark::dot);
    const int spot = side * 78 / 100;
    EXPECT_EQ(plain.pixelColor(spot, spot).blue() > plain.pixelColor(spot, spot).green(), true);
    EXPECT_GT(healthy.pixelColor(spot, spot).green(), healthy.pixelColor(spot, spot).blue());
    EXPECT_EQ(plain.pixelColor(0, 0).alpha(), 0);
  }
}

}  // namespace
}  // namespace zunto::testing
