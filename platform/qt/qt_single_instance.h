// One instance per user session: a second start hands over what it was started for and ends.
//
// The instances meet on the session bus, by the desktop's own convention (org.freedesktop.Application).
// Without a bus that answers every start stands alone. Owner: the program's entry, as its first object: a
// start that hands over needs nothing else. Thread: main thread only, callbacks included.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "async/clock.h"
#include "platform/qt/qt_url_events.h"

struct sd_bus;

namespace zunto {

/// What a start asks of the instance that runs: a link, else an action by its name, else to come forward. The
/// token lets it take the focus.
struct LaunchRequest {
  std::optional<std::string> link;
  std::optional<std::string> action;
  std::string activationToken;
};

/// What the desktop entry offers besides opening the program, by the names that it has there.
using DesktopActions = std::map<std::string, std::function<void()>, std::less<>>;

/// What this start was made for, from the arguments of main() and from the environment, out of which Qt takes
/// the token. The link is the first argument that is neither an option nor stands behind one; an action is an
/// option of that name.
[[nodiscard]] LaunchRequest readLaunchRequest(int argc, const char* const* argv,
                                              std::span<const std::string_view> actions = {});

class QtSingleInstance final {
 public:
  static constexpr const char* busName = "example.zunto.Helper";
  static constexpr const char* objectPath = "/example/zunto/Helper";

  QtSingleInstance();
  QtSingleInstance(const QtSingleInstance&) = delete;
  QtSingleInstance& operator=(const QtSingleInstance&) = delete;
  /// Another start becomes the first from now on. One whose request was not delivered yet hears of that.
  ~QtSingleInstance();

  enum class Role {
    first,      ///< this is the one instance
    alone,      ///< there is no bus to meet on, or none that answers
    handedOver  ///< another instance has taken the request: the program ends with status 0
  };

  /// Decides which instance this is, within about 2 seconds whatever bus and other instance do. Called once,
  /// before anything stands that this could hold up, and while a signal still ends the program by itself.
  [[nodiscard]] Role claim(const LaunchRequest& request);

  /// Whether there was a bus that answered.
  [[nodiscard]] bool hasBus() const { return bus_ != nullptr; }

  /// Takes the requests of other starts from now on, each on a turn of its own: links go to `links`, and
  /// `activate` is called where a start only wants the program to come forward, but not for one that the bus
  /// has kept until this instance was there: that is what has started it. An action that is not among
  /// `actions` asks no more than that either. A start hears that its
  /// request was taken when it was delivered, not before: where this instance ends first, that start becomes
  /// the next one. Called once, after claim(), while a QtApplication lives; the references must outlive this
  /// object or the event loop's end.
  void serve(Clock& clock, QtUrlEvents& links, std::function<void()> activate, DesktopActions actions = {});

 private:
  class Service;
  struct BusCloser {
    void operator()(sd_bus* bus) const;
  };

  std::unique_ptr<sd_bus, BusCloser> bus_;
  std::unique_ptr<Service> service_;
};

}  // namespace zunto
