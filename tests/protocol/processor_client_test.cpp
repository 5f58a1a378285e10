#include "protocol/processor_client.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "async/executor.h"
#include "protocol/helper_error.h"
#include "task_result.h"
#include "tests/fakes/scripted_http_session.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::Pair;
using testing::RecordedRequest;
using testing::ScriptedAnswer;
using testing::start;
using ::testing::TestParamInfo;
using ::testing::TestWithParam;
using ::testing::ValuesIn;

const char* const queuedJob = R"({"jobId":"1","status":"queued"})";

/// A client and the world that it talks to.
struct ClientWorld {
  testing::VirtualClock clock;
  testing::ScriptedHttpSession http{clock};
  std::string token = "abc";
  ProcessorClient client{Url::parse("http://127.0.0.1:43127").value(), http, token};
  Executor executor{clock};

  template <class T>
  std::shared_ptr<testing::TaskResult<T>> run(Task<T> task) {
    const auto running = start(executor, std::move(task));
    clock.runTurns();
    return running.result;
  }

  [[nodiscard]] Task<MediaJob> poll() const {
    return client.request<MediaJob>("jobs/1", HttpMethod::get, std::nullopt);
  }
  [[nodiscard]] Task<MediaJob> probe() const {
    return client.request<MediaJob>("probe", HttpMethod::post, RequestBody{{"sourceUrl", "https://e.org"}});
  }
  [[nodiscard]] Task<std::optional<MediaJob>> cancel() const {
    return client.request<std::optional<MediaJob>>("jobs/1/cancel", HttpMethod::post, RequestBody());
  }
};

// ---- The six requests as they are sent.

struct RequestRow {
  std::string name;
  std::string method;
  std::string path;
  ScriptedAnswer answer;
  std::optional<std::string> body;
  HttpHeaders headers;
  /// Sends the request, and answers whether it succeeded.
  std::function<bool(ClientWorld&)> send;

  friend void PrintTo(const RequestRow& row, std::ostream* out) { *out << row.name; }
};

const HttpHeaders getHeaders = {{"Content-Type", "application/json"}};
const HttpHeaders postHeaders = {{"Content-Type", "application/json"}, {"Authorization", "Bearer abc"}};

std::vector<RequestRow> requestRows() {
  return {
      {"health",
       "GET",
       "/health",
       {.body = "not read"},
       std::nullopt,
       {},
       [](ClientWorld& world) { return world.run(world.client.fetchHealth())->value.has_value(); }},
      {"probe",
       "POST",
       "/probe",
       {.status = 202, .body = queuedJob},
       R"({"sourceUrl":"https://e.org"})",
       postHeaders,
       [](ClientWorld& world) { return world.run(world.probe())->value.has_value(); }},
      {"jobs",
       "POST",
       "/jobs",
       {.status = 201, .body = queuedJob},
       R"({"sourceUrl":" as it is ","permissionConfirmed":true,"mode":"audio"})",
       postHeaders,
       [](ClientWorld& world) {
         const RequestBody body = {
             {"sourceUrl", " as it is "}, {"permissionConfirmed", true}, {"mode", "audio"}};
         return world.run(world.client.request<MediaJob>("jobs", HttpMethod::post, body))->value.has_value();
       }},
      {"status",
       "GET",
       "/jobs/1",
       {.body = queuedJob},
       std::nullopt,
       getHeaders,
       [](ClientWorld& world) { return world.run(world.poll())->value.has_value(); }},
      {"cancel",
       "POST",
       "/jobs/1/cancel",
       {.body = "null"},
       "{}",
       postHeaders,
       [](ClientWorld& world) { return world.run(world.cancel())->value.has_value(); }},
      {"result",
       "GET",
       "/jobs/1/result",
       {.body = "bytes"},
       std::nullopt,
       {},
       [](ClientWorld& world) {
         return world.run(world.client.fetchResult("1", "/home/user"))->value.has_value();
       }},
  };
}

class RequestTable : public TestWithParam<RequestRow> {};

TEST_P(RequestTable, IsSentOnceWithItsMethodPathHeadersAndBody) {
  ClientWorld world;
  world.http.answer(GetParam().method, GetParam().path, GetParam().answer);
  EXPECT_TRUE(GetParam().send(world));
  ASSERT_EQ(world.http.requests().size(), 1U);
  const RecordedRequest& request = world.http.requests().front();
  EXPECT_EQ(request.method, GetParam().method);
  EXPECT_EQ(request.url, "http://127.0.0.1:43127" + GetParam().path);
  EXPECT_EQ(request.body, GetParam().body);
  EXPECT_THAT(request.headers, ::testing::UnorderedElementsAreArray(GetParam().headers));
  EXPECT_EQ(request.timeout, std::chrono::seconds(60));
}

TEST_P(RequestTable, IsNotRepeatedAfterATransportFailure) {
  ClientWorld world;
  world.http.answerAlways(GetParam().method, GetParam().path, ScriptedAnswer::refusedConnection());
  EXPECT_FALSE(GetParam().send(world));
  world.clock.advance(std::chrono::hours(1));
  EXPECT_EQ(world.http.requests().size(), 1U);
}

TEST_P(RequestTable, IsNotRepeatedAfterAnAnswerThatAsksForPatience) {
  ClientWorld world;
  world.http.answerAlways(GetParam().method, GetParam().path,
                          {.status = 503, .headers = {{"Retry-After", "1"}}, .body = "{}"});
  GetParam().send(world);
  world.clock.advance(std::chrono::hours(1));
  EXPECT_EQ(world.http.requests().size(), 1U);
}

INSTANTIATE_TEST_SUITE_P(Rows, RequestTable, ValuesIn(requestRows()),
                         [](const TestParamInfo<RequestRow>& row) { return row.param.name; });

// ---- How an answer is judged by its status.

struct JudgementRow {
  std::string name;
  std::optional<int> status;
  bool isSuccess;

  friend void PrintTo(const JudgementRow& row, std::ostream* out) { *out << row.name; }
};

class JudgementTable : public TestWithParam<JudgementRow> {};

TEST_P(JudgementTable, DecidesBetweenTheRecordAndTheErrorOfTheProcessor) {
  ClientWorld world;
  world.http.answer(
      "GET", "/jobs/1",
      {.status = GetParam().status, .body = R"({"jobId":"1","status":"queued","error":{"message":"No."}})"});
  const auto result = world.run(world.poll());
  EXPECT_EQ(result->value.has_value(), GetParam().isSuccess);
  if (GetParam().isSuccess) return;
  const auto failure = result->failureAs<HelperError>();
  ASSERT_TRUE(failure);
  EXPECT_EQ(failure->code(), HelperErrorCode::processorError);
  EXPECT_EQ(failure->message(), "No.");
}

INSTANTIATE_TEST_SUITE_P(Rows, JudgementTable,
                         ValuesIn(std::vector<JudgementRow>{{"status199", 199, false},
                                                            {"status200", 200, true},
                                                            {"status202", 202, true},
                                                            {"status299", 299, true},
                                                            {"status300", 300, false},
                                                            {"status302", 302, false},
                                                            {"status401", 401, false},
                                                            {"status404", 404, false},
                                                            {"status500", 500, false},
                                                            {"noHttp", std::nullopt, false}}),
                         [](const TestParamInfo<JudgementRow>& row) { return row.param.name; });

// ---- What each failure of a request tells the user.

TEST(RequestFailureTable, ATransportFailureOrATimeOutIsRaisedAsItIs) {
  ClientWorld world;
  world.http.answer("GET", "/jobs/1", ScriptedAnswer::transportFailure("The host is unreachable."));
  world.http.answer("GET", "/jobs/1", ScriptedAnswer::silence());
  const auto unreachable = world.run(world.poll());
  EXPECT_TRUE(unreachable->failureAs<SystemError>());
  EXPECT_EQ(unreachable->message(), "The host is unreachable.");
  const auto silent = world.run(world.poll());
  world.clock.advance(std::chrono::milliseconds(59999));
  EXPECT_TRUE(silent->isPending());
  world.clock.advance(std::chrono::milliseconds(1));
  EXPECT_EQ(silent->message(), "The request timed out.");
}

TEST(RequestFailureTable, AnErrorEnvelopeGivesItsSentence) {
  ClientWorld world;
  world.http.answer("POST", "/probe",
                    {.status = 422, .body = R"({"error":{"message":"This site is unknown."}})"});
  EXPECT_EQ(world.run(world.probe())->message(), "This site is unknown.");
}

TEST(RequestFailureTable, AnErrorEnvelopesSentenceStaysAsItIsAlsoWhenItIsEmptyOrHoldsANullCharacter) {
  ClientWorld world;
  world.http.answer("POST", "/probe", {.status = 500, .body = R"({"error":{"message":""}})"});
  world.http.answer("POST", "/probe",
                    {.status = 500, .body = R"({"error":{"message":"before\u0000after"}})"});
  EXPECT_EQ(world.run(world.probe())->failureAs<HelperError>().value().message(), "");
  EXPECT_EQ(world.run(world.probe())->message(), std::string("before\0after", 12));
}

TEST(RequestFailureTable, AnyOtherBodyOfAnErrorStatusGivesTheFixedSentence) {
  for (const char* body :
       {"", "Internal Server Error", "null", "{}", R"({"error":"text"})", R"({"error":{}})",
        R"({"error":{"message":1}})", R"({"message":"text"})", "\xff"}) {
    ClientWorld world;
    world.http.answer("POST", "/probe", {.status = 500, .body = body});
    const auto failure = world.run(world.probe())->failureAs<HelperError>();
    ASSERT_TRUE(failure) << body;
    EXPECT_EQ(failure->code(), HelperErrorCode::processorError);
    EXPECT_EQ(failure->message(), "The local processor returned an error.") << body;
  }
}

TEST(RequestFailureTable, ASuccessThatIsNoRecordRaisesTheDecodersError) {
  for (const char* body : {"", "ok", "null", "{}", R"({"jobId":1,"status":"queued"})"}) {
    ClientWorld world;
    world.http.answer("POST", "/probe", {.status = 200, .body = body});
    EXPECT_TRUE(world.run(world.probe())->failureAs<DecodingError>()) << body;
  }
}

TEST(RequestFailureTable, AResultWithAnotherStatusThanTwoHundredCouldNotBeRead) {
  for (const std::optional<int> status :
       {std::optional(201), std::optional(204), std::optional(206), std::optional(302), std::optional(404),
        std::optional(500), std::optional<int>()}) {
    ClientWorld world;
    world.http.answer("GET", "/jobs/1/result",
                      {.status = status, .body = R"({"error":{"message":"Not shown."}})"});
    const auto failure = world.run(world.client.fetchResult("1", "/home/user"))->failureAs<HelperError>();
    ASSERT_TRUE(failure);
    EXPECT_EQ(failure->code(), HelperErrorCode::unreadableResult);
    EXPECT_EQ(failure->message(), "The local result could not be read.");
  }
}

// ---- The cases that are easy to get wrong.

TEST(ProcessorClientEdgeCases, APostCarriesTheTokenAndAGetOfAStatusDoesNot) {
  ClientWorld world;
  world.http.answer("POST", "/probe", {.body = queuedJob});
  world.http.answer("GET", "/jobs/1", {.body = queuedJob});
  world.run(world.probe());
  world.run(world.poll());
  ASSERT_EQ(world.http.requests().size(), 2U);
  const RecordedRequest& post = world.http.requests()[0];
  const RecordedRequest& get = world.http.requests()[1];
  EXPECT_EQ(post.header("Authorization"), "Bearer abc");
  EXPECT_EQ(post.header("Content-Type"), "application/json");
  EXPECT_EQ(get.header("Authorization"), std::nullopt);
  EXPECT_EQ(get.header("Content-Type"), "application/json");
}

TEST(ProcessorClientEdgeCases, AnEmptyTokenIsSentWithTheTrailingBlank) {
  ClientWorld world;
  world.token.clear();
  world.http.answer("POST", "/probe", {.body = queuedJob});
  world.run(world.probe());
  EXPECT_EQ(world.http.requests().at(0).header("Authorization"), "Bearer ");
}

TEST(ProcessorClientEdgeCases, AStatusAnswerOf204WithoutBodyFailsToDecodeAndOneOf200WithAJobSucceeds) {
  ClientWorld world;
  world.http.answer("GET", "/jobs/1", {.status = 204});
  world.http.answer("GET", "/jobs/1", {.status = 200, .body = queuedJob});
  EXPECT_TRUE(world.run(world.poll())->failureAs<DecodingError>());
  const auto job = world.run(world.poll());
  ASSERT_TRUE(job->value);
  EXPECT_EQ(job->value->jobId, "1");
  EXPECT_EQ(job->value->status, "queued");
}

TEST(ProcessorClientEdgeCases, AnAnswerOf500GivesTheEnvelopesSentenceOrTheFixedOne) {
  ClientWorld world;
  world.http.answer("GET", "/jobs/1",
                    {.status = 500, .body = R"({"error":{"message":"Out of disk space."}})"});
  world.http.answer("GET", "/jobs/1", {.status = 500, .body = "Out of disk space."});
  EXPECT_EQ(world.run(world.poll())->message(), "Out of disk space.");
  EXPECT_EQ(world.run(world.poll())->message(), "The local processor returned an error.");
}

TEST(ProcessorClientEdgeCases, ACancelSendsAnEmptyObjectAndAcceptsAJobOrNull) {
  ClientWorld world;
  world.http.answer("POST", "/jobs/1/cancel", {.body = "null"});
  world.http.answer("POST", "/jobs/1/cancel", {.body = R"({"jobId":"1","status":"cancelled"})"});
  const auto none = world.run(world.cancel());
  const auto job = world.run(world.cancel());
  ASSERT_TRUE(none->value);
  EXPECT_FALSE(*none->value);
  ASSERT_TRUE(job->value);
  EXPECT_EQ(job->value->value().status, "cancelled");
  for (const RecordedRequest& request : world.http.requests()) EXPECT_EQ(request.body, "{}");
}

TEST(ProcessorClientEdgeCases, AResultAnsweredWith206CouldNotBeRead) {
  ClientWorld world;
  world.http.answer("GET", "/jobs/1/result", {.status = 206, .body = "half"});
  EXPECT_EQ(world.run(world.client.fetchResult("1", "/home/user"))->message(),
            "The local result could not be read.");
}

// ---- The rest of the rules.

TEST(ProcessorClient, ReadsTheTokenAnewForEveryPost) {
  ClientWorld world;
  world.http.answerAlways("POST", "/probe", {.body = queuedJob});
  world.run(world.probe());
  world.token = "def";
  world.run(world.probe());
  EXPECT_EQ(world.http.requests().at(1).header("Authorization"), "Bearer def");
}

TEST(ProcessorClient, SendsNothingWhenTheBodyCannotBeWritten) {
  ClientWorld world;
  const RequestBody body = {{"sourceUrl", "\xff"}};
  const auto result = world.run(world.client.request<MediaJob>("probe", HttpMethod::post, body));
  EXPECT_TRUE(result->failureAs<EncodingError>());
  EXPECT_THAT(world.http.requests(), IsEmpty());
}

TEST(ProcessorClient, GivesTheHeadOfAHealthAnswerWhateverItsStatus) {
  ClientWorld world;
  world.http.answer("GET", "/health", {.status = 500, .headers = {{"X-A", "1"}}});
  const auto head = world.run(world.client.fetchHealth());
  ASSERT_TRUE(head->value);
  EXPECT_EQ(head->value->status, 500);
  EXPECT_EQ(head->value->header("x-a"), "1");
}

TEST(ProcessorClient, FetchesAResultIntoAFileInTheFolderThatItIsGiven) {
  ClientWorld world;
  world.http.answer("GET", "/jobs/1/result", {.body = "bytes"});
  const auto result = world.run(world.client.fetchResult("1", "/home/user/Videos"));
  ASSERT_TRUE(result->value);
  ASSERT_EQ(world.http.files().size(), 1U);
  EXPECT_EQ(world.http.files()[0]->folder, "/home/user/Videos");
  EXPECT_EQ(world.http.files()[0]->content, "bytes");
  EXPECT_FALSE(world.http.files()[0]->isRemoved);
}

TEST(ProcessorClient, RemovesTheFileOfAResultThatCouldNotBeRead) {
  ClientWorld world;
  world.http.answer("GET", "/jobs/1/result", {.status = 404, .body = "{}"});
  world.run(world.client.fetchResult("1", "/home/user"));
  ASSERT_EQ(world.http.files().size(), 1U);
  EXPECT_TRUE(world.http.files()[0]->isRemoved);
}

TEST(ProcessorClient, NeverReadsAResultAsJson) {
  ClientWorld world;
  world.http.answer("GET", "/jobs/1/result", {.body = "\xff{{{"});
  EXPECT_TRUE(world.run(world.client.fetchResult("1", "/home/user"))->value);
}

TEST(ProcessorClient, ACancelledRequestIsEndedAndRaisesCancelled) {
  ClientWorld world;
  world.http.answer("GET", "/jobs/1", {.body = queuedJob, .delay = std::chrono::seconds(5)});
  const auto running = start(world.executor, world.poll());
  world.clock.runTurns();
  running.handle.cancel();
  world.clock.runTurns();
  EXPECT_TRUE(running.result->failureAs<Cancelled>());
  EXPECT_EQ(world.http.requests().at(0).fate, RecordedRequest::Fate::cancelled);
}

TEST(ProcessorClient, ARequestOfACancelledTaskIsNotSent) {
  ClientWorld world;
  const auto running = start(world.executor, world.poll());
  running.handle.cancel();
  world.clock.runTurns();
  EXPECT_TRUE(running.result->failureAs<Cancelled>());
  EXPECT_THAT(world.http.requests(), IsEmpty());
}

TEST(ProcessorClient, LeavesAnIdentifierOfPathCharactersAsItIs) {
  ClientWorld world;
  world.run(world.client.request<MediaJob>("jobs/Job_1.a:b+c=D~-", HttpMethod::get, std::nullopt));
  EXPECT_EQ(world.http.requests().at(0).url, "http://127.0.0.1:43127/jobs/Job_1.a:b+c=D~-");
}

TEST(ProcessorClient, EncodesAnIdentifierThatMayNotStandInAPath) {
  ClientWorld world;
  world.run(world.client.request<MediaJob>("jobs/a b?c", HttpMethod::get, std::nullopt));
  EXPECT_EQ(world.http.requests().at(0).url, "http://127.0.0.1:43127/jobs/a%20b%3Fc");
}

TEST(ProcessorClient, TakesAnAnswerOfMegabytes) {
  ClientWorld world;
  const std::string title(std::size_t{8} << 20, 't');
  world.http.answer("GET", "/jobs/1",
                    {.body = R"({"jobId":"1","status":"completed","title":")" + title + "\"}"});
  const auto job = world.run(world.poll());
  ASSERT_TRUE(job->value);
  EXPECT_EQ(job->value->title->size(), title.size());
}

}  // namespace
}  // namespace zunto
