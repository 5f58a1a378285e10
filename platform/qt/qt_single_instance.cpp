#include "platform/qt/qt_single_instance.h"

#include <QDBusConnectionInterface>
#include <QDBusError>
#include <QGuiApplication>
#include <QStringList>
#include <QVariantMap>
#include <thread>
#include <utility>

#include "platform/qt/qt_dbus_object.h"
#include "platform/qt/qt_socket_channel.h"
#include "platform/qt/qt_text.h"

namespace zunto {

namespace {

constexpr QLatin1String applicationInterface("org.freedesktop.Application");

constexpr const char* applicationDescription = R"xml(
  <interface name="org.freedesktop.Application">
    <method name="Activate"><arg type="a{sv}" name="platform_data" direction="in"/></method>
    <method name="Open">
      <arg type="as" name="uris" direction="in"/><arg type="a{sv}" name="platform_data" direction="in"/>
    </method>
    <method name="ActivateAction">
      <arg type="s" name="action_name" direction="in"/><arg type="av" name="parameter" direction="in"/>
      <arg type="a{sv}" name="platform_data" direction="in"/>
    </method>
  </interface>
)xml";

/// How long the other instance may take to say that it has the request. One that is busy has it all the
/// same: the bus and the socket keep it.
constexpr int patienceInMilliseconds = 5000;

constexpr int attempts = 100;
constexpr std::chrono::milliseconds pauseBetweenAttempts(50);

std::string tokenOf(const QVariant& platformData) {
  const auto data = qdbus_cast<QVariantMap>(platformData);
  QString token = data.value(QStringLiteral("activation-token")).toString();
  if (token.isEmpty()) token = data.value(QStringLiteral("desktop-startup-id")).toString();
  return fromQString(token);
}

/// Lets the next window that asks for the focus have it. Elsewhere the request itself is enough.
void useActivationToken(const std::string& token) {
  if (token.empty() || !QGuiApplication::platformName().startsWith(QLatin1String("wayland"))) return;
  qputenv("XDG_ACTIVATION_TOKEN", QByteArray::fromStdString(token));
}

}  // namespace

/// Offers the application on the bus, and calls the one that does already.
class QtSingleInstance::BusChannel {
 public:
  BusChannel(QDBusConnection bus, QtSingleInstance& owner)
      : bus_(std::move(bus)),
        owner_(owner),
        object_(bus_, QString::fromLatin1(objectPath),
                {.interface = applicationInterface,
                 .description = QString::fromLatin1(applicationDescription),
                 .properties = [] { return QVariantMap(); },
                 .call = [this](const QDBusMessage& call,
                                const QDBusConnection& from) { return answer(call, from); }}) {}
  BusChannel(const BusChannel&) = delete;
  BusChannel& operator=(const BusChannel&) = delete;
  ~BusChannel() {
    if (isFirst_ && bus_.isConnected()) bus_.unregisterService(QString::fromLatin1(busName));
  }

  /// The role, or none when the bus does not work.
  std::optional<Role> claim(const LaunchRequest& request) {
    for (int attempt = 0; attempt < attempts; ++attempt) {
      // The object stands already, so no call to the name can miss it.
      const auto reply = bus_.interface()->registerService(QString::fromLatin1(busName),
                                                           QDBusConnectionInterface::DontQueueService,
                                                           QDBusConnectionInterface::DontAllowReplacement);
      if (!reply.isValid()) return std::nullopt;
      if (reply.value() == QDBusConnectionInterface::ServiceRegistered) {
        isFirst_ = true;
        return Role::first;
      }
      if (handOver(request)) return Role::handedOver;
      std::this_thread::sleep_for(pauseBetweenAttempts);
    }
    return std::nullopt;
  }

 private:
  /// False when the other instance has ended meanwhile.
  bool handOver(const LaunchRequest& request) {
    QVariantMap data;
    if (!request.activationToken.empty()) {
      data[QStringLiteral("activation-token")] = toQString(request.activationToken);
      data[QStringLiteral("desktop-startup-id")] = toQString(request.activationToken);
    }
    QDBusMessage call = QDBusMessage::createMethodCall(
        QString::fromLatin1(busName), QString::fromLatin1(objectPath), applicationInterface,
        request.link ? QStringLiteral("Open") : QStringLiteral("Activate"));
    call.setAutoStartService(false);
    if (request.link) call << QStringList(toQString(*request.link));
    call << data;
    const QDBusMessage answer = bus_.call(call, QDBus::Block, patienceInMilliseconds);
    if (answer.type() == QDBusMessage::ReplyMessage) return true;
    // No answer in time leaves two cases: the instance is busy, or it is gone and so is its name.
    return QDBusError(answer).type() == QDBusError::NoReply &&
           bus_.interface()->isServiceRegistered(QString::fromLatin1(busName)).value();
  }

  bool answer(const QDBusMessage& call, const QDBusConnection& from) {
    const QVariantList arguments = call.arguments();
    const QString signature = call.signature();
    if (call.member() == QLatin1String("Activate") && signature == QLatin1String("a{sv}")) {
      owner_.received({std::nullopt, tokenOf(arguments[0])});
    } else if (call.member() == QLatin1String("Open") && signature == QLatin1String("asa{sv}")) {
      open(arguments[0].toStringList(), tokenOf(arguments[1]));
    } else if (call.member() == QLatin1String("ActivateAction") && signature == QLatin1String("sava{sv}")) {
      // The program offers no actions: being asked for one still means that it is wanted.
      owner_.received({std::nullopt, tokenOf(arguments[2])});
    } else {
      return false;
    }
    from.send(call.createReply());
    return true;
  }

  void open(const QStringList& links, const std::string& token) {
    if (links.isEmpty()) owner_.received({std::nullopt, token});
    for (const QString& link : links) owner_.received({fromQString(link), token});
  }

  QDBusConnection bus_;
  QtSingleInstance& owner_;
  bool isFirst_ = false;
  QtDBusObject object_;
};

QtSingleInstance::QtSingleInstance(Clock& clock, QtUrlEvents& links, std::optional<QDBusConnection> bus)
    : clock_(clock), links_(links), bus_(std::move(bus)), self_(std::make_shared<QtSingleInstance*>(this)) {}

QtSingleInstance::~QtSingleInstance() = default;

QtSingleInstance::Role QtSingleInstance::claim(const LaunchRequest& request) {
  std::optional<Role> role;
  if (bus_) {
    busChannel_ = std::make_unique<BusChannel>(*bus_, *this);
    role = busChannel_->claim(request);
    if (!role) busChannel_.reset();
  }
  if (!role) {
    socketChannel_ =
        std::make_unique<QtSocketChannel>([this](const LaunchRequest& asked) { received(asked); });
    role = socketChannel_->claim(request, std::chrono::milliseconds(patienceInMilliseconds))
               ? Role::first
               : Role::handedOver;
  }
  // The window comes up by itself at a start; only a link has to follow it.
  if (role == Role::first && request.link) links_.deliver(*request.link);
  return *role;
}

void QtSingleInstance::setActivateHandler(std::function<void()> handler) {
  activate_ = std::move(handler);
  if (activationWaits_) scheduleActivation();
}

void QtSingleInstance::received(const LaunchRequest& request) {
  useActivationToken(request.activationToken);
  if (request.link) {
    links_.deliver(*request.link);
    return;
  }
  activationWaits_ = true;
  if (activate_) scheduleActivation();
}

void QtSingleInstance::scheduleActivation() {
  clock_.post([self = std::weak_ptr<QtSingleInstance*>(self_)] {
    const auto alive = self.lock();
    if (!alive || !std::exchange((*alive)->activationWaits_, false)) return;
    const std::function<void()> activate = (*alive)->activate_;
    if (activate) activate();
  });
}

}  // namespace zunto
