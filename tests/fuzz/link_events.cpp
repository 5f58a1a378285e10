// Links of the program's own scheme, as web pages hand them over: whatever they say, the window is shown with
// a link in it or nothing happens.
#include <algorithm>
#include <string>

#include "helper_world.h"
#include "property.h"

namespace {

using zunto::fuzz::require;
using zunto::testing::HelperWorld;
using zunto::testing::WindowUse;

constexpr const char* heldText = "what the field held";

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string link(zunto::fuzz::textOf(data, size));
  HelperWorld world(WindowUse::real);
  world.health.answerHealthy();
  world.launch();
  world.clock.runTurns();
  world.form().urlField.setText(heldText);
  const std::size_t requests = world.http.requests().size();

  world.urlEvents.deliverLink(link);
  world.clock.runTurns();

  const bool isPresented = world.window().showRequests() == 2;
  require(isPresented || world.window().showRequests() == 1, "a link shows the window once at most");
  require(!isPresented || link.starts_with("zunto-helper:"), "a link of another scheme shows nothing");
  const std::string& field = world.form().urlField.text();
  if (field != heldText) {
    require(isPresented, "the field changes with the window only");
    require(link.find("url=") != std::string::npos || link.find('%') != std::string::npos,
            "the field changes for a link of that name only");
    require(!field.empty() &&
                std::all_of(field.begin(), field.end(), [](char c) { return c > 0x20 && c < 0x7F; }),
            "the field shows a link");
  }
  require(world.launches() == 0, "a link launches nothing");
  require(world.workspace.openedAddresses().empty() && world.workspace.revealedLocations().empty(),
          "a link opens nothing");
  require(world.beeper.beeps() == 0, "a link is ignored in silence");
  require(world.http.requests().size() - requests == (isPresented ? 1U : 0U),
          "the window asks once for its token");
  require(world.http.requests().back().path == "/health", "a link sends no other request");
  return 0;
}
