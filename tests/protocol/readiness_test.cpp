#include "protocol/readiness.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "async/executor.h"
#include "tests/fakes/fake_ensure_helper.h"
#include "tests/fakes/scripted_http_session.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using testing::ScriptedAnswer;
using ::testing::TestParamInfo;
using ::testing::TestWithParam;
using ::testing::ValuesIn;

const std::string starting = "Starting the local processor…";
const std::string ready = "Ready. Processing and browser access stay on this Mac.";
const std::string couldNotStart = "ZUNTO Helper could not start. Use the menu bar log for details.";
const std::string noToken = "The local processor did not provide a session token.";

class RecordingForm final : public ReadinessForm {
 public:
  void setBusy(bool busy, const std::string& status) override {
    states.emplace_back(busy, status);
    isProblem = false;
  }
  void markProblem() override { isProblem = true; }
  bool isProblem = false;
  std::vector<std::pair<bool, std::string>> states;
};

struct ReadinessWorld {
  testing::VirtualClock clock;
  testing::ScriptedHttpSession http{clock};
  testing::FakeEnsureHelper helper{clock};
  RecordingForm form;
  std::string token;
  ProcessorClient client{Url::parse("http://127.0.0.1:43127").value(), http, token};
  Readiness readiness{helper.function(), client, token, form};
  Executor executor{clock};

  void run() {
    executor.spawn(readiness.prepareSession());
    clock.runTurns();
  }
  void answerHealth(HttpHeaders headers, std::optional<int> status = 200) {
    http.answer("GET", "/health", {.status = status, .headers = std::move(headers)});
  }
};

// ---- Every outcome, with an earlier token in hand.

struct OutcomeRow {
  std::string name;
  bool helperAnswer;
  ScriptedAnswer health;
  std::string status;
  std::string tokenAfterwards;

  friend void PrintTo(const OutcomeRow& row, std::ostream* out) { *out << row.name; }
};

class ReadinessOutcomeTable : public TestWithParam<OutcomeRow> {};

TEST_P(ReadinessOutcomeTable, ShowsItsStatusOnAnIdleFormAndTreatsTheTokenAsItShould) {
  ReadinessWorld world;
  world.token = "earlier";
  world.helper.answer = GetParam().helperAnswer;
  world.http.answer("GET", "/health", GetParam().health);
  world.run();
  EXPECT_THAT(world.form.states, ElementsAre(Pair(true, starting), Pair(false, GetParam().status)));
  EXPECT_EQ(world.form.isProblem, GetParam().status != ready);
  EXPECT_EQ(world.token, GetParam().tokenAfterwards);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, ReadinessOutcomeTable,
    ValuesIn(std::vector<OutcomeRow>{
        {"helperCouldNotStart", false, {}, couldNotStart, "earlier"},
        {"healthUnreachable", true, ScriptedAnswer::transportFailure("Connection refused."),
         "Connection refused.", "earlier"},
        {"headerMissing", true, {.headers = {{"X-Other", "t"}}}, noToken, "earlier"},
        {"headerEmpty", true, {.headers = {{"X-ZUNTO-Session-Token", ""}}}, noToken, "earlier"},
        {"notHttp",
         true,
         {.status = std::nullopt, .headers = {{"X-ZUNTO-Session-Token", "t"}}},
         noToken,
         "earlier"},
        {"success", true, {.headers = {{"X-ZUNTO-Session-Token", "t1"}}}, ready, "t1"}}),
    [](const TestParamInfo<OutcomeRow>& row) { return row.param.name; });

// ---- The cases that are easy to get wrong; two more stand with the window, whose presenting starts the
// step.

TEST(ReadinessEdgeCases, ATokenHeaderInLowerCaseYieldsTheToken) {
  ReadinessWorld world;
  world.answerHealth({{"x-zunto-session-token", "t1"}});
  world.run();
  EXPECT_EQ(world.token, "t1");
}

TEST(ReadinessEdgeCases, AnEmptyTokenHeaderFailsAndKeepsAnEarlierToken) {
  ReadinessWorld world;
  world.token = "earlier";
  world.answerHealth({{"X-ZUNTO-Session-Token", ""}});
  world.run();
  EXPECT_EQ(world.form.states.back(), std::pair(false, noToken));
  EXPECT_EQ(world.token, "earlier");
}

TEST(ReadinessEdgeCases, AHealthAnswerOf503WithTheHeaderStillYieldsTheToken) {
  ReadinessWorld world;
  world.answerHealth({{"X-ZUNTO-Session-Token", "t1"}}, 503);
  world.run();
  EXPECT_EQ(world.token, "t1");
  EXPECT_EQ(world.form.states.back(), std::pair(false, ready));
}

TEST(ReadinessEdgeCases, NoHealthRequestIsSentWhenTheHelperCouldNotStart) {
  ReadinessWorld world;
  world.helper.answer = false;
  world.run();
  EXPECT_THAT(world.http.requests(), IsEmpty());
}

// ---- The rest of the rules.

TEST(Readiness, IsBusyWhileTheHelperStartsAndSendsNothingYet) {
  ReadinessWorld world;
  world.helper.delay = std::chrono::seconds(3);
  world.answerHealth({{"X-ZUNTO-Session-Token", "t1"}});
  world.run();
  EXPECT_THAT(world.form.states, ElementsAre(Pair(true, starting)));
  EXPECT_THAT(world.http.requests(), IsEmpty());
  world.clock.advance(std::chrono::seconds(3));
  EXPECT_THAT(world.form.states, ElementsAre(Pair(true, starting), Pair(false, ready)));
}

TEST(Readiness, FetchesHealthWithoutHeadersOfItsOwn) {
  ReadinessWorld world;
  world.token = "earlier";
  world.answerHealth({{"X-ZUNTO-Session-Token", "t1"}});
  world.run();
  ASSERT_EQ(world.http.requests().size(), 1U);
  EXPECT_EQ(world.http.requests()[0].method, "GET");
  EXPECT_THAT(world.http.requests()[0].headers, IsEmpty());
}

TEST(Readiness, TakesTheTokenVerbatim) {
  ReadinessWorld world;
  for (const char* token : {" a b\t", " ", "Zm9v+/=="}) {
    world.answerHealth({{"X-ZUNTO-Session-Token", token}});
    world.run();
    EXPECT_EQ(world.token, token);
  }
}

TEST(Readiness, TimesOutWithTheTransportsSentence) {
  ReadinessWorld world;
  world.http.answer("GET", "/health", ScriptedAnswer::silence());
  world.run();
  world.clock.advance(std::chrono::seconds(60));
  EXPECT_EQ(world.form.states.back(), std::pair(false, std::string("The request timed out.")));
}

TEST(Readiness, OverlappingStepsAreIndependentAndTheLastToEndSetsTheStatus) {
  ReadinessWorld world;
  world.http.answer("GET", "/health",
                    {.headers = {{"X-ZUNTO-Session-Token", "slow"}}, .delay = std::chrono::seconds(2)});
  world.http.answer("GET", "/health", {.headers = {}, .delay = std::chrono::seconds(1)});
  world.run();
  world.run();
  EXPECT_EQ(world.helper.calls(), 2);
  world.clock.advance(std::chrono::seconds(1));
  EXPECT_EQ(world.form.states.back(), std::pair(false, noToken));
  EXPECT_EQ(world.token, "");
  world.clock.advance(std::chrono::seconds(1));
  EXPECT_EQ(world.form.states.back(), std::pair(false, ready));
  EXPECT_EQ(world.token, "slow");
  EXPECT_EQ(world.form.states.size(), 4U);
}

TEST(Readiness, ACancelledStepShowsTheCancellationAndLeavesTheFormIdle) {
  ReadinessWorld world;
  world.http.answer("GET", "/health", ScriptedAnswer::silence());
  const TaskHandle handle = world.executor.spawn(world.readiness.prepareSession());
  world.clock.runTurns();
  handle.cancel();
  world.clock.runTurns();
  EXPECT_EQ(world.form.states.back(), std::pair(false, std::string(Cancelled().message())));
  EXPECT_EQ(world.token, "");
}

}  // namespace
}  // namespace zunto
