#include "platform/qt/qt_single_instance.h"

#include <poll.h>
#include <systemd/sd-bus.h>

#include <QByteArray>
#include <QSocketNotifier>
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "platform/qt/qt_activation.h"
#include "platform/qt/qt_startup_notice.h"
#include "platform/qt/qt_text.h"

namespace zunto {

namespace {

using std::chrono::steady_clock;

constexpr const char* applicationInterface = "org.freedesktop.Application";

/// How long a start looks for another instance before it goes on without.
constexpr std::chrono::milliseconds patience(2000);

/// How long the other instance may take to say that it has the request. What is left of the patience is for
/// the question whether it is still there: one that is busy has the request all the same, since the bus keeps
/// it.
constexpr std::chrono::milliseconds patienceWithInstance(1500);

constexpr std::chrono::milliseconds pauseBetweenAttempts(50);

struct MessageCloser {
  void operator()(sd_bus_message* message) const { sd_bus_message_unref(message); }
};
using Message = std::unique_ptr<sd_bus_message, MessageCloser>;

class CallError {
 public:
  CallError() = default;
  CallError(const CallError&) = delete;
  CallError& operator=(const CallError&) = delete;
  ~CallError() { sd_bus_error_free(&error_); }
  [[nodiscard]] sd_bus_error* get() { return &error_; }

 private:
  sd_bus_error error_{};
};

std::uint64_t microsecondsUntil(steady_clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - steady_clock::now());
  return static_cast<std::uint64_t>(std::max<std::int64_t>(left.count(), 0));
}

bool hasPassed(steady_clock::time_point deadline) { return microsecondsUntil(deadline) == 0; }

/// Runs the connection's greeting. False where the bus does not answer in time.
bool waitUntilReady(sd_bus& bus, steady_clock::time_point deadline) {
  while (sd_bus_is_ready(&bus) == 0) {
    const int done = sd_bus_process(&bus, nullptr);
    if (done < 0 || hasPassed(deadline)) return false;
    if (done > 0) continue;
    const int waited = sd_bus_wait(&bus, microsecondsUntil(deadline));
    if (waited < 0 && waited != -EINTR) return false;
  }
  return sd_bus_is_ready(&bus) > 0;
}

/// The reply; null when there is an error instead, or none within the deadline.
Message call(sd_bus& bus, sd_bus_message& message, steady_clock::time_point deadline) {
  const std::uint64_t limit = microsecondsUntil(deadline);
  if (limit == 0) return nullptr;  // which the library takes for its own, long limit
  CallError error;
  sd_bus_message* reply = nullptr;
  sd_bus_call(&bus, &message, limit, error.get(), &reply);
  return Message(reply);
}

enum class NameOwner { thisInstance, otherInstance, unknown };

NameOwner requestName(sd_bus& bus, steady_clock::time_point deadline) {
  constexpr std::uint32_t neitherQueueNorReplace = 4;
  constexpr std::uint32_t isOwner = 1;
  sd_bus_message* raw = nullptr;
  sd_bus_message_new_method_call(&bus, &raw, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                                 "org.freedesktop.DBus", "RequestName");
  const Message request(raw);
  if (!request || sd_bus_message_append(raw, "su", QtSingleInstance::busName, neitherQueueNorReplace) < 0) {
    return NameOwner::unknown;
  }
  const Message reply = call(bus, *request, deadline);
  std::uint32_t answer = 0;
  if (!reply || sd_bus_message_read(reply.get(), "u", &answer) <= 0) return NameOwner::unknown;
  return answer == isOwner ? NameOwner::thisInstance : NameOwner::otherInstance;
}

int appendPlatformData(sd_bus_message& message, const std::string& token) {
  if (token.empty()) return sd_bus_message_append(&message, "a{sv}", 0);
  return sd_bus_message_append(&message, "a{sv}", 2, "activation-token", "s", token.c_str(),
                               "desktop-startup-id", "s", token.c_str());
}

Message makeHandOver(sd_bus& bus, const LaunchRequest& request) {
  sd_bus_message* raw = nullptr;
  sd_bus_message_new_method_call(&bus, &raw, QtSingleInstance::busName, QtSingleInstance::objectPath,
                                 applicationInterface,
                                 request.link     ? "Open"
                                 : request.action ? "ActivateAction"
                                                  : "Activate");
  Message message(raw);
  if (!message || sd_bus_message_set_auto_start(raw, 0) < 0) return nullptr;
  // An argument may be any bytes, a text on the bus may not.
  if (request.link) {
    const std::string link = fromQString(toQString(*request.link));
    if (sd_bus_message_append(raw, "as", 1, link.c_str()) < 0) return nullptr;
  } else if (request.action) {
    if (sd_bus_message_append(raw, "sav", request.action->c_str(), 0) < 0) return nullptr;
  }
  if (appendPlatformData(*raw, fromQString(toQString(request.activationToken))) < 0) return nullptr;
  return message;
}

/// Reads the links that stand next in the message. False where they cannot be read.
bool readLinks(sd_bus_message& message, std::vector<std::string>& links) {
  if (sd_bus_message_enter_container(&message, SD_BUS_TYPE_ARRAY, "s") < 0) return false;
  const char* link = nullptr;
  while (sd_bus_message_read_basic(&message, SD_BUS_TYPE_STRING, &link) > 0) links.emplace_back(link);
  return sd_bus_message_exit_container(&message) >= 0;
}

/// Reads the platform data that stand next in the message, of which only the token counts.
std::string readToken(sd_bus_message& message) {
  std::string token;
  sd_bus_message_enter_container(&message, SD_BUS_TYPE_ARRAY, "{sv}");
  while (sd_bus_message_enter_container(&message, SD_BUS_TYPE_DICT_ENTRY, "sv") > 0) {
    const char* name = nullptr;
    const char* value = nullptr;
    sd_bus_message_read_basic(&message, SD_BUS_TYPE_STRING, &name);
    const std::string_view key = name == nullptr ? "" : name;
    const bool isNewer = key == "activation-token";
    const bool isToken = isNewer || (key == "desktop-startup-id" && token.empty());
    if (isToken && sd_bus_message_read(&message, "v", "s", &value) > 0) {
      token = value;
    } else {
      sd_bus_message_skip(&message, "v");
    }
    sd_bus_message_exit_container(&message);
  }
  return token;
}

}  // namespace

LaunchRequest readLaunchRequest(int argc, const char* const* argv,
                                std::span<const std::string_view> actions) {
  const auto isOption = [&](int index) { return index > 0 && argv[index][0] == '-'; };
  LaunchRequest request;
  for (int i = 1; i < argc && !request.link; ++i) {
    if (!isOption(i) && !isOption(i - 1)) request.link = argv[i];
    for (const std::string_view action : actions) {
      if (argv[i] == "--" + std::string(action)) request.action = action;
    }
  }
  const QByteArray token = qgetenv("XDG_ACTIVATION_TOKEN");
  request.activationToken = (token.isEmpty() ? qgetenv("DESKTOP_STARTUP_ID") : token).toStdString();
  return request;
}

/// Answers the calls of other starts and of the desktop.
class QtSingleInstance::Service {
 public:
  Service(sd_bus& bus, Clock& clock, QtUrlEvents& links, std::function<void()> activate,
          DesktopActions actions)
      : bus_(bus),
        clock_(clock),
        links_(links),
        activate_(std::move(activate)),
        actions_(std::move(actions)),
        readable_(sd_bus_get_fd(&bus), QSocketNotifier::Read),
        writable_(sd_bus_get_fd(&bus), QSocketNotifier::Write) {
    sd_bus_add_object_vtable(&bus_, nullptr, objectPath, applicationInterface, methods.data(), this);
    for (QSocketNotifier* news : {&readable_, &writable_}) {
      QObject::connect(news, &QSocketNotifier::activated, news, [this] { work(); });
    }
    // What came with the last answer of the claim is not news to the notifiers.
    clock_.post([self = std::weak_ptr<Service*>(self_)] {
      const auto alive = self.lock();
      if (!alive) return;
      (*alive)->work();
      (*alive)->isStarting_ = false;
    });
    writable_.setEnabled(false);
  }
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service() = default;

 private:
  static int onActivate(sd_bus_message* call, void* service, sd_bus_error*) {
    static_cast<Service*>(service)->asked(nullptr, *call);
    return 1;
  }

  static int onOpen(sd_bus_message* call, void* service, sd_bus_error*) {
    std::vector<std::string> links;
    if (!readLinks(*call, links)) return -EINVAL;
    static_cast<Service*>(service)->received(std::move(links), *call);
    return 1;
  }

  static int onAction(sd_bus_message* call, void* service, sd_bus_error*) {
    const char* name = nullptr;
    if (sd_bus_message_read_basic(call, SD_BUS_TYPE_STRING, &name) < 0) return -EINVAL;
    sd_bus_message_skip(call, "av");
    const DesktopActions& actions = static_cast<Service*>(service)->actions_;
    const auto action = actions.find(std::string_view(name));
    static_cast<Service*>(service)->asked(action == actions.end() ? nullptr : action->second, *call);
    return 1;
  }

  /// What is to follow when a call was delivered. The call goes with the function: one that never runs has
  /// never answered.
  std::function<void()> answerTo(sd_bus_message& call) {
    return [self = std::weak_ptr<Service*>(self_),
            message = std::shared_ptr<sd_bus_message>(sd_bus_message_ref(&call), MessageCloser())] {
      if (const auto alive = self.lock()) (*alive)->answer(*message);
    };
  }

  /// Without an action the program is to come forward. Whoever had the bus start it sees it come up: there
  /// that is no more than the launch.
  void asked(std::function<void()> action, sd_bus_message& call) {
    std::string token = readToken(call);
    endStartupNotice(token);
    if (!action && !isStarting_) action = activate_;
    clock_.post([action = std::move(action), token = std::move(token), delivered = answerTo(call)] {
      const QtActivation activation(token);
      if (action) action();
      delivered();
    });
  }

  void received(std::vector<std::string> links, sd_bus_message& call) {
    if (links.empty()) {
      asked(nullptr, call);
      return;
    }
    std::string token = readToken(call);
    endStartupNotice(token);
    std::string last = std::move(links.back());
    links.pop_back();
    for (std::string& link : links) links_.deliver(std::move(link));
    links_.deliver(std::move(last), std::move(token), answerTo(call));
  }

  void answer(sd_bus_message& call) {
    sd_bus_reply_method_return(&call, nullptr);
    watch();
  }

  void work() {
    int done = 0;
    do {
      done = sd_bus_process(&bus_, nullptr);
    } while (done > 0);
    watch();
  }

  /// Nothing comes any more from a bus that is gone.
  void watch() {
    const int wanted = sd_bus_get_events(&bus_);
    readable_.setEnabled(wanted >= 0);
    writable_.setEnabled(wanted >= 0 && (wanted & POLLOUT) != 0);
  }

  static const std::array<sd_bus_vtable, 5> methods;

  sd_bus& bus_;
  Clock& clock_;
  QtUrlEvents& links_;
  std::function<void()> activate_;
  DesktopActions actions_;
  bool isStarting_ = true;
  QSocketNotifier readable_;
  QSocketNotifier writable_;
  std::shared_ptr<Service*> self_ = std::make_shared<Service*>(this);
};

const std::array<sd_bus_vtable, 5> QtSingleInstance::Service::methods{
    {SD_BUS_VTABLE_START(0), SD_BUS_METHOD("Activate", "a{sv}", "", onActivate, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("Open", "asa{sv}", "", onOpen, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_METHOD("ActivateAction", "sava{sv}", "", onAction, SD_BUS_VTABLE_UNPRIVILEGED),
     SD_BUS_VTABLE_END}};

void QtSingleInstance::BusCloser::operator()(sd_bus* bus) const { sd_bus_close_unref(bus); }

QtSingleInstance::QtSingleInstance() = default;

QtSingleInstance::~QtSingleInstance() = default;

QtSingleInstance::Role QtSingleInstance::claim(const LaunchRequest& request) {
  const auto start = steady_clock::now();
  const auto deadline = start + patience;
  const auto answerDue = start + patienceWithInstance;
  sd_bus* raw = nullptr;
  if (sd_bus_open_user(&raw) < 0) return Role::alone;
  bus_.reset(raw);
  if (!waitUntilReady(*raw, deadline)) bus_.reset();
  bool isLeftWaiting = false;
  while (bus_) {
    const NameOwner owner = requestName(*bus_, deadline);
    if (owner == NameOwner::thisInstance) return Role::first;
    if (owner == NameOwner::unknown) {
      bus_.reset();
      break;
    }
    if (isLeftWaiting) return Role::handedOver;
    if (hasPassed(answerDue)) break;  // whoever has the name refuses, and keeps it
    const Message handOver = makeHandOver(*bus_, request);
    if (handOver && call(*bus_, *handOver, answerDue)) return Role::handedOver;
    isLeftWaiting = hasPassed(answerDue);
    // Refused, by an instance that ends and gives up its name.
    if (!isLeftWaiting) std::this_thread::sleep_for(pauseBetweenAttempts);
  }
  return Role::alone;
}

void QtSingleInstance::serve(Clock& clock, QtUrlEvents& links, std::function<void()> activate,
                             DesktopActions actions) {
  if (!bus_) return;
  service_ = std::make_unique<Service>(*bus_, clock, links, std::move(activate), std::move(actions));
}

}  // namespace zunto
