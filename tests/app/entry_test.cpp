#include "app/entry.h"

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "helper_world.h"

namespace zunto {
namespace {

using testing::HelperWorld;
using testing::Journal;

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
    return runHelper(application, [this](FixedAddresses addresses) {
      journal.emplace_back("make delegate");
      given = std::move(addresses);
      return world.delegate;
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

TEST_F(EntryTest, MakesTheDelegateSetsItAndThePolicyAndRunsTheLoopInThisOrder) {
  EXPECT_EQ(run(), 0);
  EXPECT_EQ(journal, (Journal{"make delegate", "set delegate", "set activation policy", "run"}));
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

TEST(EntryDeathTest, AnAddressThatDoesNotParseEndsTheProgramAtOnce) {
  EXPECT_DEATH((void)fixedAddresses("no host name"),
               "fatal error: the fixed address https://no host name/tools/video-import/ is not a URL");
}

}  // namespace
}  // namespace zunto
