#include "app/entry.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <iostream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "helper_world.h"

namespace zunto {
namespace {

using testing::HelperWorld;
using testing::Journal;
using testing::WindowUse;

/// An application whose event loop does what a test says, and returns.
class ScriptedLoop final : public ApplicationLoop {
 public:
  explicit ScriptedLoop(Journal& journal) : journal_(journal) {}

  std::function<void()> whileRunning;
  std::weak_ptr<ApplicationDelegate> delegate;
  std::optional<ActivationPolicy> policy;

  void setDelegate(std::weak_ptr<ApplicationDelegate> newDelegate) override {
    journal_.emplace_back("set delegate");
    delegate = std::move(newDelegate);
  }
  void setActivationPolicy(ActivationPolicy newPolicy) override {
    journal_.emplace_back("set activation policy");
    policy = newPolicy;
  }
  void run() override {
    journal_.emplace_back("run");
    if (whileRunning) whileRunning();
  }

 private:
  Journal& journal_;
};

struct EntryTest : ::testing::Test {
  HelperWorld world;
  Journal journal;
  ScriptedLoop application{journal};
  std::optional<FixedAddresses> given;

  int run() {
    return runProgram([this](FixedAddresses addresses) {
      given = std::move(addresses);
      return runHelper(application, world.delegate);
    });
  }
};

// The program-wide values.

using EntryValuesTable = EntryTest;

TEST_F(EntryValuesTable, HelperBaseURLIsTheLoopbackAddressOfTheProcessor) {
  EXPECT_EQ(run(), 0);
  ASSERT_TRUE(given);
  EXPECT_EQ(given->helperBaseURL.absoluteString(), "http://127.0.0.1:43127");
}

TEST_F(EntryValuesTable, VideoImportPageURLIsAnHttpsAddressWithItsFixedPath) {
  EXPECT_EQ(run(), 0);
  ASSERT_TRUE(given);
  const std::string page = given->videoImportPageURL.absoluteString();
  EXPECT_EQ(given->videoImportPageURL.scheme(), "https");
  const std::string path = "/tools/video-import/";
  ASSERT_GT(page.size(), std::string("https://").size() + path.size());
  EXPECT_EQ(page.find('/', std::string("https://").size()), page.size() - path.size());
  EXPECT_TRUE(page.ends_with(path));
}

TEST_F(EntryValuesTable, TheApplicationObjectIsKeptUntilItsEventLoopReturns) {
  bool isRunning = false;
  application.whileRunning = [&] { isRunning = application.policy.has_value(); };
  EXPECT_EQ(run(), 0);
  EXPECT_TRUE(isRunning);
}

TEST_F(EntryValuesTable, TheDelegateIsKeptForTheLifeOfTheProgramAndNoLonger) {
  bool wasAlive = false;
  application.whileRunning = [&] {
    world.delegate.reset();
    wasAlive = !application.delegate.expired();
  };
  EXPECT_EQ(run(), 0);
  EXPECT_TRUE(wasAlive);
  EXPECT_TRUE(application.delegate.expired());
}

// The sequence.

TEST_F(EntryTest, SetsTheDelegateAndThePolicyAndRunsTheLoopInThisOrder) {
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(journal, (Journal{"set delegate", "set activation policy", "run"}));
}

TEST_F(EntryTest, MakesTheApplicationAnOrdinaryOneWithItsDelegate) {
  std::shared_ptr<ApplicationDelegate> seen;
  application.whileRunning = [&] { seen = application.delegate.lock(); };
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(application.policy, ActivationPolicy::regular);
  EXPECT_EQ(seen, world.delegate);
}

TEST_F(EntryTest, BuildsNothingBeforeLaunchingHasFinished) {
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(world.journal, Journal{});
}

TEST_F(EntryTest, AnswersZeroWhenTheEventLoopReturns) { EXPECT_EQ(run(), 0); }

TEST(EntryDeathTest, AnAddressThatDoesNotParseEndsTheProgramBeforeAnythingOfThePlatformStands) {
  const auto platformMain = [](const FixedAddresses&) {
    std::cerr << "the platform\n";
    return 0;
  };
  EXPECT_DEATH((void)runProgram(platformMain, "no host name"),
               "^zunto-helper: fatal error: "
               "the fixed address https://no host name/tools/video-import/ is not a URL\n$");
}

TEST(EntryDeathTest, WhatThePlatformThrowsEndsTheProgramWithOneClearLine) {
  const auto throwsAnError = [](const FixedAddresses&) -> int { throw std::runtime_error("no pipe"); };
  EXPECT_DEATH((void)runProgram(throwsAnError), "^zunto-helper: fatal error: no pipe\n$");
  const auto throwsANumber = [](const FixedAddresses&) -> int { throw 1; };
  EXPECT_DEATH((void)runProgram(throwsANumber),
               "^zunto-helper: fatal error: something was thrown that is no error\n$");
}

TEST_F(EntryTest, AnswersThePlatformsStatus) {
  EXPECT_EQ(runProgram([](const FixedAddresses&) { return 3; }), 3);
}

// The delegate as the entry makes it.

struct EntrysDelegate : ::testing::Test {
  HelperWorld world{WindowUse::real};

  EntrysDelegate() { world.launch(); }
};

TEST_F(EntrysDelegate, ProbesTheProcessorsAddressAndItsWindowSendsItsRequestsThere) {
  world.health.answerHealthy();
  world.clock.runTurns();
  ASSERT_EQ(world.commands.runs().size(), 1U);
  EXPECT_EQ(world.commands.runs().at(0).arguments.back(), "http://127.0.0.1:43127/health");
  ASSERT_EQ(world.http.requests().size(), 1U);
  EXPECT_EQ(world.http.requests().at(0).url, "http://127.0.0.1:43127/health");
}

TEST_F(EntrysDelegate, OpensThePageAddressFromItsMenu) {
  world.choose(3);
  EXPECT_EQ(world.workspace.openedAddresses(),
            std::vector<std::string>{fixedAddresses().videoImportPageURL.absoluteString()});
}

TEST_F(EntrysDelegate, StartsTheProcessorThatItsWindowAsksFor) {
  world.health.answerHealthyAfter(2);
  world.clock.runTurns();
  EXPECT_EQ(world.launches(), 1U);
  EXPECT_TRUE(world.fields().isStarting);
  EXPECT_TRUE(world.http.requests().empty()) << "the window waits for the delegate's answer";
  world.clock.advance(std::chrono::milliseconds(300));
  EXPECT_EQ(world.display(), testing::readyDisplay);
  EXPECT_EQ(world.http.requests().size(), 1U);
}

TEST_F(EntrysDelegate, TellsItsWindowWhenNoProcessorCanBeStarted) {
  world.files.removeTree(testing::scriptFile);
  world.clock.runTurns();
  ASSERT_EQ(world.alerts.openCount(), 1U);
  world.alerts.press(testing::okButton);
  world.clock.runTurns();
  EXPECT_EQ(world.form().statusLabel.text(),
            "ZUNTO Helper could not start. Use the menu bar log for details.");
  EXPECT_TRUE(world.http.requests().empty());
}

}  // namespace
}  // namespace zunto
