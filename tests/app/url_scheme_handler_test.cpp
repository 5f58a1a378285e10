#include <gtest/gtest.h>

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "helper_world.h"

namespace zunto {
namespace {

using testing::HelperWorld;
using testing::Journal;
using testing::WindowUse;

constexpr const char* heldText = "what the field held";

struct UrlSchemeHandler : ::testing::Test {
  HelperWorld world{WindowUse::real};

  UrlSchemeHandler() {
    world.health.answerHealthy();
    world.launch();
    world.clock.runTurns();
    world.form().urlField.setText(heldText);
    world.journal.clear();
  }

  void deliver(const std::string& link) {
    world.urlEvents.deliverLink(link);
    world.clock.runTurns();
  }
  [[nodiscard]] const std::string& fieldText() const { return world.form().urlField.text(); }
  [[nodiscard]] std::uint64_t presentations() const { return world.window().showRequests() - 1; }

  void expectPresentedWith(const std::string& link, const std::string& text) {
    deliver(link);
    EXPECT_EQ(presentations(), 1U) << link;
    EXPECT_EQ(fieldText(), text) << link;
  }
  void expectIgnored(UrlEvent event) {
    world.urlEvents.deliver(std::move(event));
    world.clock.runTurns();
    EXPECT_EQ(presentations(), 0U);
    EXPECT_EQ(fieldText(), heldText);
    EXPECT_EQ(world.journal, Journal{}) << "an ignored event must stay silent and bring nothing forward";
    EXPECT_EQ(world.beeper.beeps(), 0);
  }
  void expectIgnored(const std::string& link) {
    SCOPED_TRACE(link);
    expectIgnored(UrlEvent{UrlEventObject{link}});
  }
};

using UrlSchemeHandlerEdgeCases = UrlSchemeHandler;

TEST_F(UrlSchemeHandlerEdgeCases, APercentEncodedHttpsAddressOpensTheWindowWithTheDecodedAddressInTheField) {
  world.window().userClosed();
  expectPresentedWith("zunto-helper:?url=https%3A%2F%2Fexample.com%2Fwatch%3Fv%3Dabc%26t%3D1",
                      "https://example.com/watch?v=abc&t=1");
  EXPECT_TRUE(world.window().isVisible());
}

TEST_F(UrlSchemeHandlerEdgeCases, ALinkWithoutAQueryOpensTheWindowAndLeavesTheFieldUnchanged) {
  expectPresentedWith("zunto-helper:", heldText);
}

TEST_F(UrlSchemeHandlerEdgeCases, ALinkWhoseOnlyQueryItemHasAnotherNameOpensTheWindowWithoutALink) {
  expectPresentedWith("zunto-helper:?link=https%3A%2F%2Fexample.com%2F1", heldText);
}

TEST_F(UrlSchemeHandlerEdgeCases, OfTwoUrlItemsTheFirstOnesValueIsUsed) {
  expectPresentedWith("zunto-helper:?url=https%3A%2F%2Fexample.com%2F1&url=https%3A%2F%2Fexample.com%2F2",
                      "https://example.com/1");
}

TEST_F(UrlSchemeHandlerEdgeCases, TheSchemeInUpperCaseOrAnotherSchemeIsIgnoredEntirely) {
  world.window().userClosed();
  expectIgnored("ZUNTO-HELPER:?url=https%3A%2F%2Fexample.com%2F1");
  expectIgnored("Zunto-helper:?url=https%3A%2F%2Fexample.com%2F1");
  expectIgnored("https://example.com/?url=https%3A%2F%2Fexample.com%2F1");
  EXPECT_FALSE(world.window().isVisible());
}

TEST_F(UrlSchemeHandlerEdgeCases,
       ASecondEventReplacesTheTextBringsTheWindowForwardAndStartsAnotherReadinessStep) {
  deliver("zunto-helper:?url=https%3A%2F%2Fexample.com%2F1");
  ASSERT_EQ(fieldText(), "https://example.com/1");
  const std::size_t probesBefore = world.health.probes();
  const int activationsBefore = world.application.activations();

  deliver("zunto-helper:?url=https%3A%2F%2Fexample.com%2F2");

  EXPECT_EQ(fieldText(), "https://example.com/2");
  EXPECT_EQ(presentations(), 2U);
  EXPECT_EQ(world.application.activations(), activationsBefore + 1);
  EXPECT_EQ(world.health.probes(), probesBefore + 1);
}

TEST_F(UrlSchemeHandler, AnEventWithoutADirectObjectIsIgnored) { expectIgnored(UrlEvent{std::nullopt}); }

TEST_F(UrlSchemeHandler, AnEventWhoseObjectIsNoTextIsIgnored) {
  expectIgnored(UrlEvent{UrlEventObject{std::nullopt}});
}

TEST_F(UrlSchemeHandler, ATextThatIsNoUrlIsIgnored) {
  expectIgnored("");
  expectIgnored("zunto-helper:?url=a b");
  expectIgnored("zunto-helper://[::1?url=x");
}

TEST_F(UrlSchemeHandler, AUrlWithoutASchemeIsIgnored) {
  expectIgnored("zunto-helper?url=https%3A%2F%2Fexample.com%2F1");
  expectIgnored("//zunto-helper/?url=https%3A%2F%2Fexample.com%2F1");
}

TEST_F(UrlSchemeHandler, ASchemeThatOnlyBeginsTheSameIsIgnored) {
  expectIgnored("zunto-helper2:?url=https%3A%2F%2Fexample.com%2F1");
  expectIgnored("zunto:?url=https%3A%2F%2Fexample.com%2F1");
}

TEST_F(UrlSchemeHandler, HostPathFragmentAndOtherItemsAreIgnored) {
  expectPresentedWith("zunto-helper://host:1/some/path?a=1&url=https%3A%2F%2Fexample.com%2F1&b=2#url=x",
                      "https://example.com/1");
}

TEST_F(UrlSchemeHandler, AUrlItemOnlyInTheFragmentIsNone) {
  expectPresentedWith("zunto-helper:#url=https%3A%2F%2Fexample.com%2F1", heldText);
}

TEST_F(UrlSchemeHandler, TheItemsNameIsComparedExactly) {
  expectPresentedWith("zunto-helper:?URL=https%3A%2F%2Fexample.com%2F1&urls=https%3A%2F%2Fexample.com%2F2",
                      heldText);
}

TEST_F(UrlSchemeHandler, AFirstUrlItemWithoutAValueIsNoLinkAlsoWhenASecondHasOne) {
  expectPresentedWith("zunto-helper:?url&url=https%3A%2F%2Fexample.com%2F2", heldText);
}

TEST_F(UrlSchemeHandler, AnEmptyValueIsNoLink) { expectPresentedWith("zunto-helper:?url=", heldText); }

TEST_F(UrlSchemeHandler, AValueThatDoesNotParseIsNoLink) {
  expectPresentedWith("zunto-helper:?url=not%20a%20link", heldText);
}

TEST_F(UrlSchemeHandler, AValueWithABlankInFrontOrBehindIsNoLink) {
  deliver("zunto-helper:?url=%20https%3A%2F%2Fexample.com%2F1");
  deliver("zunto-helper:?url=%09https%3A%2F%2Fexample.com%2F1");
  deliver("zunto-helper:?url=https%3A%2F%2Fexample.com%2F1%20");
  EXPECT_EQ(fieldText(), heldText);
  EXPECT_EQ(presentations(), 3U);
}

TEST_F(UrlSchemeHandler, APlusStaysAPlus) {
  expectPresentedWith("zunto-helper:?url=https%3A%2F%2Fexample.com%2Fa+b", "https://example.com/a+b");
}

TEST_F(UrlSchemeHandler, AMediaLinkThatIsNoSupportedAddressIsPassedOnUnjudged) {
  expectPresentedWith("zunto-helper:?url=ftp%3A%2F%2Fexample.com%2F1", "ftp://example.com/1");
}

TEST_F(UrlSchemeHandler, ThePresentationDoesNotWaitForTheProcessor) {
  world.health.nobodyListens();
  world.delegate->handleURLWithEvent({UrlEventObject{"zunto-helper:?url=https%3A%2F%2Fexample.com%2F1"}});
  EXPECT_EQ(fieldText(), "https://example.com/1");
  EXPECT_EQ(world.application.activations(), 2);
  EXPECT_FALSE(world.fields().isStarting);
}

TEST_F(UrlSchemeHandler, NeitherStartsAnAnalysisNorSendsAnythingButTheHealthRequest) {
  deliver("zunto-helper:?url=https%3A%2F%2Fexample.com%2F1");
  for (const auto& request : world.http.requests()) EXPECT_EQ(request.path, "/health");
}

TEST(UrlSchemeHandlerBeforeLaunch, WithoutAWindowALinkIsIgnored) {
  HelperWorld world;
  world.delegate->handleURLWithEvent({UrlEventObject{"zunto-helper:?url=https%3A%2F%2Fexample.com%2F1"}});
  world.clock.runTurns();
  EXPECT_EQ(world.journal, Journal{});
}

TEST(UrlSchemeHandlerBeforeLaunch, ALinkAtAColdStartIsHandledAfterTheWindowWasPresentedWithoutOne) {
  HelperWorld world(WindowUse::real);
  world.health.answerHealthy();
  world.urlEvents.deliverLink("zunto-helper:?url=https%3A%2F%2Fexample.com%2F1");
  world.clock.runTurns();
  world.launch();
  EXPECT_EQ(world.form().urlField.text(), "");
  EXPECT_EQ(world.window().showRequests(), 1U);
  world.clock.runTurns();
  EXPECT_EQ(world.form().urlField.text(), "https://example.com/1");
  EXPECT_EQ(world.window().showRequests(), 2U);
}

}  // namespace
}  // namespace zunto
