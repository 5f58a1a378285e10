// One instance per user session: a second start hands over what it was started for and ends.
//
// The instances meet on the session bus, by the desktop's own convention (org.freedesktop.Application), or,
// where there is no bus, at a socket of this user and display. Owner: the program's entry. Thread: main
// thread only, the handler included.
#pragma once

#include <QDBusConnection>
#include <QString>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "async/clock.h"
#include "platform/qt/qt_url_events.h"

namespace zunto {

class QtSocketChannel;

/// What a start asks of the instance that runs: a link, or none to come forward. The token lets it take the
/// focus.
struct LaunchRequest {
  std::optional<std::string> link;
  std::string activationToken;
};

class QtSingleInstance final {
 public:
  static constexpr const char* busName = "example.zunto.Helper";
  static constexpr const char* objectPath = "/example/zunto/Helper";

  /// Links go to `links`. `bus` is none where there is no session bus. Both references must outlive this
  /// object.
  QtSingleInstance(Clock& clock, QtUrlEvents& links, std::optional<QDBusConnection> bus);
  QtSingleInstance(const QtSingleInstance&) = delete;
  QtSingleInstance& operator=(const QtSingleInstance&) = delete;
  /// Another start becomes the first from now on.
  ~QtSingleInstance();

  enum class Role {
    first,      ///< this is the one instance; the start's own link is on its way to the link source
    handedOver  ///< another instance has taken the request: the program ends with status 0
  };

  /// Decides which instance this is; blocks for a few calls to the other instance, at most some seconds when
  /// that one does not answer. Called once.
  [[nodiscard]] Role claim(const LaunchRequest& request);

  /// What a start without a link does: the program comes forward. It runs on a turn of its own; a request
  /// that came before a handler was set is delivered then.
  void setActivateHandler(std::function<void()> handler);

 private:
  class BusChannel;

  void received(const LaunchRequest& request);
  void scheduleActivation();

  Clock& clock_;
  QtUrlEvents& links_;
  std::optional<QDBusConnection> bus_;
  std::function<void()> activate_;
  bool activationWaits_ = false;
  std::shared_ptr<QtSingleInstance*> self_;
  std::unique_ptr<BusChannel> busChannel_;
  std::unique_ptr<QtSocketChannel> socketChannel_;
};

}  // namespace zunto
