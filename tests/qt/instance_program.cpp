// A program as the real one, without its logic: says on standard output what happens to it.
#include <QApplication>
#include <array>
#include <csignal>
#include <iostream>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/qt/qt_application.h"
#include "platform/qt/qt_clock.h"
#include "platform/qt/qt_session_bus.h"
#include "platform/qt/qt_single_instance.h"
#include "platform/qt/qt_url_events.h"

namespace {

void say(const std::string& what) { std::cout << what << std::endl; }

class Teller final : public zunto::ApplicationDelegate {
 public:
  explicit Teller(zunto::QtUrlEvents& links) : links_(links) {}
  void applicationDidFinishLaunching() override {
    links_.setHandler([](const zunto::UrlEvent& event) {
      const std::string& link = *event.directObject->stringValue;
      say("link " + std::to_string(link.size()) + " " + link.substr(0, 80));
    });
    say("launched");
  }
  void applicationWillTerminate() override { say("willTerminate"); }

 private:
  zunto::QtUrlEvents& links_;
};

}  // namespace

int main(int argc, char** argv) {
  using namespace zunto;
  QtSingleInstance instance;
  constexpr std::array<std::string_view, 1> actionNames{"greet"};
  const LaunchRequest request = readLaunchRequest(argc, argv, actionNames);
  const QtSingleInstance::Role role = instance.claim(request);
  if (role == QtSingleInstance::Role::handedOver) {
    say("handedOver");
    return 0;
  }
  say(role == QtSingleInstance::Role::first ? "first" : "alone");
  QtSessionBus sessionBus(instance.hasBus());
  QtApplication application(argc, argv);
  const std::optional<QDBusConnection> bus = sessionBus.connect();
  QtClock clock;
  QtUrlEvents links(clock);
  const auto delegate = std::make_shared<Teller>(links);
  application.setDelegate(delegate);
  if (request.link) links.deliver(*request.link);
  instance.serve(clock, links, [] { say("activate"); }, {{"greet", [] { say("greet"); }}});
  application.run();
  say("ended");
  return 0;
}
