// The application, its events, and the small services.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <thread>

#include "backend_world.h"
#include "platform/appkit/action_target.h"
#include "platform/appkit/app_kit_application.h"
#include "platform/appkit/app_kit_host_environment.h"
#include "platform/appkit/app_kit_url_events.h"
#include "platform/appkit/app_kit_workspace.h"
#include "platform/appkit/retained.h"
#include "platform/appkit/termination_signals.h"
#include "platform/appkit/text.h"

namespace zunto::testing {
namespace {

class AppKitUrlEventsTest : public AppKitTest {
 protected:
  AppKitUrlEvents events{clock};
  std::vector<UrlEvent> seen;
  void listen() {
    events.setHandler([this](const UrlEvent& event) { seen.push_back(event); });
  }
};

TEST_F(AppKitUrlEventsTest, KeepsTheEventThatStartedTheProgramForTheFirstHandler) {
  [[NSNotificationCenter defaultCenter] postNotificationName:NSApplicationWillFinishLaunchingNotification
                                                      object:NSApp];
  ASSERT_TRUE(sendGetUrlEvent(@"zunto-helper:?url=https%3A%2F%2Fa.example"));
  runTurns();
  EXPECT_TRUE(seen.empty());
  listen();
  EXPECT_TRUE(seen.empty());
  runTurns();
  ASSERT_EQ(seen.size(), 1U);
  EXPECT_EQ(seen.front().directObject->stringValue, "zunto-helper:?url=https%3A%2F%2Fa.example");
}

TEST_F(AppKitUrlEventsTest, TellsAMissingObjectFromOneWithoutText) {
  listen();
  sendGetUrlEventWithoutObject();
  sendGetUrlEventWithoutText();
  runTurns();
  ASSERT_EQ(seen.size(), 2U);
  EXPECT_FALSE(seen[0].directObject.has_value());
  ASSERT_TRUE(seen[1].directObject.has_value());
  EXPECT_FALSE(seen[1].directObject->stringValue.has_value());
}

TEST_F(AppKitUrlEventsTest, CallsNoHandlerThatWasRemovedMeanwhile) {
  listen();
  sendGetUrlEvent(@"zunto-helper:");
  events.removeHandler();
  runTurns();
  EXPECT_TRUE(seen.empty());
  EXPECT_FALSE(sendGetUrlEvent(@"zunto-helper:"));
}

class AppKitApplicationTest : public AppKitTest {};

TEST_F(AppKitApplicationTest, IsAnOrdinaryApplicationThatOutlivesItsWindows) {
  AppKitApplication application(clock);
  application.setActivationPolicy(ActivationPolicy::regular);
  EXPECT_EQ([NSApp activationPolicy], NSApplicationActivationPolicyRegular);
  EXPECT_EQ(static_cast<int>(NSApplicationActivationPolicyRegular), 0);
  EXPECT_FALSE(
      [[NSApp delegate] respondsToSelector:@selector(applicationShouldTerminateAfterLastWindowClosed:)]);
  EXPECT_EQ([NSApp mainMenu], nil);
}

class CountingDelegate final : public ApplicationDelegate {
 public:
  void applicationDidFinishLaunching() override { ++launches; }
  void applicationWillTerminate() override { ++terminations; }
  int launches = 0;
  int terminations = 0;
};

TEST_F(AppKitApplicationTest, TellsADelegateThatItHoldsWeakly) {
  AppKitApplication application(clock);
  auto delegate = std::make_shared<CountingDelegate>();
  application.setDelegate(delegate);
  NSNotification* notice = [NSNotification notificationWithName:@"any" object:NSApp];
  [[NSApp delegate] applicationDidFinishLaunching:notice];
  EXPECT_EQ(delegate->launches, 1);
  EXPECT_EQ(delegate.use_count(), 1);
  delegate.reset();
  [[NSApp delegate] applicationDidFinishLaunching:notice];
}

TEST_F(AppKitApplicationTest, PutsAwayWhatTheEntryHoldsAfterTheDelegateWasTold) {
  AppKitApplication application(clock);
  const auto delegate = std::make_shared<CountingDelegate>();
  application.setDelegate(delegate);
  int terminationsSeen = -1;
  application.setDidTerminate([&] { terminationsSeen = delegate->terminations; });
  [[NSApp delegate] applicationWillTerminate:[NSNotification notificationWithName:@"any" object:NSApp]];
  EXPECT_EQ(terminationsSeen, 1);
}

TEST_F(AppKitApplicationTest, TurnsSignalsIntoTurnsAndPutsTheirDispositionsBack) {
  struct sigaction before = {};
  ::sigaction(SIGTERM, nullptr, &before);
  int received = 0;
  {
    TerminationSignals signals([&] { ++received; });
    ::raise(SIGTERM);
    EXPECT_EQ(received, 0);
    ASSERT_TRUE(runEventLoopUntil([&] { return received == 1; }));
    ::raise(SIGHUP);
    ASSERT_TRUE(runEventLoopUntil([&] { return received == 2; }));
  }
  struct sigaction now = {};
  ::sigaction(SIGTERM, nullptr, &now);
  EXPECT_EQ(now.sa_handler, before.sa_handler);
}

TEST_F(AppKitApplicationTest, EndsTheProgramWhenThePlatformCallsOnAnotherThread) {
  ZUNTOActionTarget* target = [[[ZUNTOActionTarget alloc] initWithAction:[] {}] autorelease];
  EXPECT_DEATH(std::thread([&] { [target performAction:nil]; }).join(), "performAction:");
}

TEST(AppKitHostEnvironmentTest, KnowsThisProcessAndItsFolders) {
  @autoreleasepool {
    const AppKitHostEnvironment host;
    EXPECT_EQ(host.processIdentifier(), ::getpid());
    EXPECT_EQ(host.homeFolder(), std::string(std::getenv("HOME")));
    EXPECT_EQ(host.environment().at("HOME"), std::getenv("HOME"));
    ::setenv("ZUNTO_TEST_LATER", "set by the entry", 1);
    EXPECT_EQ(host.environment().at("ZUNTO_TEST_LATER"), "set by the entry");
    ::unsetenv("ZUNTO_TEST_LATER");
    ASSERT_TRUE(host.resourcesFolder().has_value());
    EXPECT_TRUE(host.resourcesFolder()->is_absolute());
    EXPECT_TRUE(host.temporaryFolder().is_absolute());
    EXPECT_NE(host.temporaryFolder().native().back(), '/');
  }
}

TEST(AppKitWorkspaceTest, OpensAndReveals) {
  @autoreleasepool {
    takeDesktopRequests().clear();
    AppKitWorkspace workspace;
    workspace.openWebAddress("https://www.zunto.example/tools/video-import/");
    workspace.reveal("/tmp/a film — ü.mp4");
    EXPECT_EQ(takeDesktopRequests(),
              (std::vector<std::string>{"open https://www.zunto.example/tools/video-import/",
                                        "reveal /tmp/a film — ü.mp4"}));
  }
}

TEST(AppKitTextTest, GoesThereAndBack) {
  @autoreleasepool {
    for (const char* text : {"", "plain", "… · ● — ü", "\xF0\x9F\x8E\xAC"}) {
      EXPECT_EQ(toUtf8(toNSString(text).get()), text);
    }
    const std::string withNull("a\0b", 3);
    EXPECT_EQ(toUtf8(toNSString(withNull).get()), withNull);
    EXPECT_EQ(toUtf8(toNSString("\xFF\xE9").get()), "ÿé");
    EXPECT_EQ(toUtf8(nil), "");
  }
}

TEST(RetainedTest, KeepsAnObjectExactlyAsLongAsItLives) {
  NSObject* object = [[NSObject alloc] init];
  EXPECT_EQ([object retainCount], 1U);
  {
    const Retained<NSObject> shared(object);
    EXPECT_EQ([object retainCount], 2U);
    Retained<NSObject> copy = shared;
    EXPECT_EQ([object retainCount], 3U);
    Retained<NSObject> moved = std::move(copy);
    EXPECT_EQ([object retainCount], 3U);
    moved = {};
    EXPECT_EQ([object retainCount], 2U);
  }
  EXPECT_EQ([object retainCount], 1U);
  const auto adopted = Retained<NSObject>::adopt(object);
  EXPECT_EQ([object retainCount], 1U);
  EXPECT_EQ(adopted.get(), object);
}

}  // namespace
}  // namespace zunto::testing
