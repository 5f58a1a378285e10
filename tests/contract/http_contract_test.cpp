// What every HTTP session does: each case runs on the scripted one and on the real one against a real server,
// those of downloads on the real one with each way of bringing a body into a file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "http_world.h"

namespace zunto::testing {
namespace {

using namespace std::chrono_literals;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr std::chrono::seconds shortTimeout{1};

using WorldMaker = std::unique_ptr<HttpWorld> (*)();

/// What one callback has been given, and how often.
template <class Answer>
struct Receiver {
  std::vector<Outcome<Answer>> outcomes;

  [[nodiscard]] auto callback() {
    return [this](Outcome<Answer> outcome) { outcomes.push_back(std::move(outcome)); };
  }
  [[nodiscard]] const Answer& answer() const { return std::get<Answer>(outcomes.at(0)); }
  [[nodiscard]] std::string failure() const {
    const auto* failure = std::get_if<SystemError>(&outcomes.at(0));
    return failure ? failure->message() : "no failure";
  }
};

class HttpContract : public ::testing::TestWithParam<WorldMaker> {
 protected:
  [[nodiscard]] HttpRequest get(const std::string& path) const {
    HttpRequest request;
    request.url = world->url(path);
    request.timeout = 10s;
    return request;
  }

  bool settled(const Receiver<HttpResponse>& receiver) {
    return world->runUntil([&] { return !receiver.outcomes.empty(); });
  }
  bool settled(const Receiver<HttpDownload>& receiver) {
    return world->runUntil([&] { return !receiver.outcomes.empty(); });
  }
  bool isSeen(std::size_t count) {
    return world->runUntil([&] { return world->seen().size() >= count; });
  }

  std::unique_ptr<HttpWorld> world = GetParam()();
  Receiver<HttpResponse> response;
  Receiver<HttpDownload> download;
};

class HttpDownloadContract : public HttpContract {};

TEST_P(HttpContract, CarriesMethodPathHeadersAndBody) {
  world->answer("POST", "/probe?a=b", {});
  HttpRequest request = get("/probe?a=b");
  request.method = "POST";
  request.headers = {{"Authorization", "Bearer abc"}, {"Content-Type", "application/json"}};
  request.body = R"({"sourceUrl":"https://a.example/ü"})";

  const auto transfer = world->session().send(request, response.callback());

  ASSERT_TRUE(settled(response));
  ASSERT_THAT(world->seen(), SizeIs(1));
  const SeenRequest seen = world->seen()[0];
  EXPECT_EQ(seen.method, "POST");
  EXPECT_EQ(seen.path, "/probe?a=b");
  EXPECT_EQ((HttpResponseHead{200, seen.headers}.header("Authorization")), "Bearer abc");
  EXPECT_EQ((HttpResponseHead{200, seen.headers}.header("Content-Type")), "application/json");
  EXPECT_EQ(seen.body, *request.body);
}

TEST_P(HttpContract, KeepsTheTrailingBlankOfAHeader) {
  world->answer("POST", "/probe", {});
  HttpRequest request = get("/probe");
  request.method = "POST";
  request.headers = {{"Authorization", "Bearer "}};

  const auto transfer = world->session().send(request, response.callback());

  ASSERT_TRUE(settled(response));
  EXPECT_EQ((HttpResponseHead{200, world->seen().at(0).headers}.header("Authorization")), "Bearer ");
}

TEST_P(HttpContract, DeliversTheBody) {
  world->answer("GET", "/health", {.body = R"({"status":"ok"})"});
  const auto transfer = world->session().send(get("/health"), response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.answer().body, R"({"status":"ok"})");
  EXPECT_EQ(response.answer().head.status, 200);
}

TEST_P(HttpContract, DeliversAnEmptyBody) {
  world->answer("GET", "/health", {.status = 204});
  const auto transfer = world->session().send(get("/health"), response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.answer().body, "");
  EXPECT_EQ(response.answer().head.status, 204);
}

TEST_P(HttpContract, DeliversMegabytes) {
  const std::string megabytes(3 << 20, 'x');
  world->answer("GET", "/jobs/1", {.body = megabytes});
  const auto transfer = world->session().send(get("/jobs/1"), response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_TRUE(response.answer().body == megabytes);
}

TEST_P(HttpContract, DeliversAnErrorStatusWithItsHeaders) {
  world->answer("GET", "/health", {.status = 503, .headers = {{"X-ZUNTO-Session-Token", "t1"}}});
  const auto transfer = world->session().send(get("/health"), response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.answer().head.status, 503);
  EXPECT_EQ(response.answer().head.header("x-zunto-session-TOKEN"), "t1");
  EXPECT_EQ(response.answer().head.header("x-other"), std::nullopt);
}

TEST_P(HttpContract, DeliversAnEmptyHeader) {
  world->answer("GET", "/health", {.headers = {{"X-ZUNTO-Session-Token", ""}}});
  const auto transfer = world->session().send(get("/health"), response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.answer().head.header("X-ZUNTO-Session-Token"), "");
}

TEST_P(HttpContract, FollowsNoRedirect) {
  world->answer("GET", "/old", {.status = 302, .headers = {{"Location", world->url("/new")}}});
  const auto transfer = world->session().send(get("/old"), response.callback());
  ASSERT_TRUE(settled(response));
  world->settle();
  EXPECT_EQ(response.answer().head.status, 302);
  EXPECT_THAT(world->seen(), SizeIs(1));
}

TEST_P(HttpContract, SendsNoCookieBack) {
  world->answer("GET", "/first", {.headers = {{"Set-Cookie", "a=b; Path=/"}}});
  world->answer("GET", "/second", {});
  const auto first = world->session().send(get("/first"), response.callback());
  ASSERT_TRUE(settled(response));
  Receiver<HttpResponse> later;
  const auto second = world->session().send(get("/second"), later.callback());
  ASSERT_TRUE(settled(later));
  EXPECT_EQ((HttpResponseHead{200, world->seen().at(1).headers}.header("Cookie")), std::nullopt);
}

TEST_P(HttpContract, CallsBackOnALaterTurnAndOnce) {
  world->answer("GET", "/health", {});
  const auto transfer = world->session().send(get("/health"), response.callback());
  world->awaitQueuedTurn();
  EXPECT_THAT(response.outcomes, IsEmpty());
  ASSERT_TRUE(settled(response));
  world->settle();
  EXPECT_THAT(response.outcomes, SizeIs(1));
}

TEST_P(HttpContract, CarriesOutRequestsSideBySide) {
  world->answer("GET", "/slow", {.body = "slow", .delay = 400ms});
  world->answer("GET", "/fast", {.body = "fast"});
  Receiver<HttpResponse> fast;
  const auto slowTransfer = world->session().send(get("/slow"), response.callback());
  const auto fastTransfer = world->session().send(get("/fast"), fast.callback());
  ASSERT_TRUE(settled(fast));
  EXPECT_THAT(response.outcomes, IsEmpty());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.answer().body, "slow");
}

TEST_P(HttpContract, ASlowAnswerOutlivesTheTimeoutAsLongAsBytesArrive) {
  world->answer("GET", "/jobs/1", {.body = "abcdef", .delay = 300ms, .pieces = 6, .pieceInterval = 300ms});
  HttpRequest request = get("/jobs/1");
  request.timeout = shortTimeout;
  const auto transfer = world->session().send(request, response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.failure(), "no failure");
  EXPECT_EQ(response.answer().body, "abcdef");
}

TEST_P(HttpContract, ASlowHeadOutlivesTheTimeoutAsLongAsBytesArrive) {
  world->answer("GET", "/jobs/1",
                {.headers = {{"X-A", "a"}}, .body = "b", .headPieces = 6, .pieceInterval = 300ms});
  HttpRequest request = get("/jobs/1");
  request.timeout = shortTimeout;
  const auto transfer = world->session().send(request, response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.failure(), "no failure");
  EXPECT_EQ(response.answer().head.header("X-A"), "a");
}

TEST_P(HttpContract, SilenceWithinTheHeadTimesOut) {
  world->answer("GET", "/jobs/1", {.headPieces = 2, .pieceInterval = 5s});
  HttpRequest request = get("/jobs/1");
  request.timeout = shortTimeout;
  const auto transfer = world->session().send(request, response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.failure(), "The request timed out.");
}

TEST_P(HttpContract, SilenceBeforeTheAnswerTimesOut) {
  world->answer("GET", "/jobs/1", ScriptedAnswer::silence());
  HttpRequest request = get("/jobs/1");
  request.timeout = shortTimeout;
  const auto transfer = world->session().send(request, response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.failure(), "The request timed out.");
}

TEST_P(HttpContract, SilenceWithinTheBodyTimesOut) {
  world->answer("GET", "/jobs/1", {.body = "ab", .pieces = 2, .pieceInterval = 5s});
  HttpRequest request = get("/jobs/1");
  request.timeout = shortTimeout;
  const auto transfer = world->session().send(request, response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.failure(), "The request timed out.");
}

TEST_P(HttpContract, SaysThatNobodyListens) {
  HttpRequest request = get("/");
  request.url = world->urlWithoutListener();
  const auto transfer = world->session().send(request, response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.failure(), "Could not connect to the local processor.");
}

TEST_P(HttpContract, SaysThatAnAnswerWasCutShort) {
  world->cutShort("GET", "/jobs/1");
  const auto transfer = world->session().send(get("/jobs/1"), response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.failure(), "The answer of the local processor was cut short.");
}

TEST_P(HttpContract, AnAnswerThatIsNotHttpHasNoStatus) {
  world->answer("GET", "/health", ScriptedAnswer::notHttp());
  const auto transfer = world->session().send(get("/health"), response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.failure(), "no failure");
  EXPECT_EQ(response.answer().head.status, std::nullopt);
  EXPECT_THAT(response.answer().head.headers, IsEmpty());
  EXPECT_EQ(response.answer().body, "");
}

TEST_P(HttpContract, InterimAnswersWithoutAnEndFail) {
  world->interimForEver("GET", "/jobs/1");
  const auto transfer = world->session().send(get("/jobs/1"), response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.failure(), "The local processor sent interim answers without an end.");
}

TEST_P(HttpContract, AHeadWithoutAnEndFailsAsOneThatIsTooLarge) {
  world->headForEver("GET", "/jobs/1");
  const auto transfer = world->session().send(get("/jobs/1"), response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.failure(), "The head of the local processor's answer is too large.");
}

TEST_P(HttpContract, TakesABodyOfExactlyTheBound) {
  world->answer("GET", "/jobs/1", {.body = std::string(HttpWorld::memoryLimit, 'x')});
  const auto transfer = world->session().send(get("/jobs/1"), response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.failure(), "no failure");
}

TEST_P(HttpContract, RefusesABodyPastTheBound) {
  world->answer("GET", "/jobs/1", {.body = std::string(HttpWorld::memoryLimit + 1, 'x')});
  const auto transfer = world->session().send(get("/jobs/1"), response.callback());
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.failure(), "The answer of the local processor is too large.");
}

TEST_P(HttpContract, ADroppedTransferCallsNothingBack) {
  world->answer("GET", "/jobs/1", {.delay = 100ms});
  auto transfer = world->session().send(get("/jobs/1"), response.callback());
  ASSERT_TRUE(isSeen(1));
  transfer.reset();
  world->settle();
  EXPECT_THAT(response.outcomes, IsEmpty());
}

TEST_P(HttpContract, ATransferDroppedAfterItsEndWasQueuedCallsNothingBack) {
  world->answer("GET", "/jobs/1", {});
  auto transfer = world->session().send(get("/jobs/1"), response.callback());
  world->awaitQueuedTurn();
  transfer.reset();
  world->settle();
  EXPECT_THAT(response.outcomes, IsEmpty());
}

TEST_P(HttpContract, ATransferMayBeDroppedInsideItsCallback) {
  world->answer("GET", "/jobs/1", {.body = "body"});
  std::unique_ptr<HttpTransfer> transfer;
  transfer = world->session().send(get("/jobs/1"), [&](Outcome<HttpResponse> outcome) {
    transfer.reset();
    response.outcomes.push_back(std::move(outcome));
  });
  ASSERT_TRUE(settled(response));
  EXPECT_EQ(response.answer().body, "body");
}

TEST_P(HttpContract, AnEndedSessionCallsNothingBack) {
  world->answer("GET", "/jobs/1", {.delay = 100ms});
  const auto transfer = world->session().send(get("/jobs/1"), response.callback());
  ASSERT_TRUE(isSeen(1));
  world->endSession();
  world->settle();
  EXPECT_THAT(response.outcomes, IsEmpty());
}

TEST_P(HttpContract, ASessionEndedAfterAnEndWasQueuedCallsNothingBack) {
  world->answer("GET", "/jobs/1", {});
  const auto transfer = world->session().send(get("/jobs/1"), response.callback());
  world->awaitQueuedTurn();
  world->endSession();
  world->settle();
  EXPECT_THAT(response.outcomes, IsEmpty());
}

TEST_P(HttpDownloadContract, ADownloadDeliversHeadAndFile) {
  world->answer("GET", "/jobs/1/result", {.headers = {{"X-Kind", "video"}}, .body = "content"});
  const auto transfer =
      world->session().download(get("/jobs/1/result"), world->folder(), download.callback());
  ASSERT_TRUE(settled(download));
  EXPECT_EQ(download.answer().head.status, 200);
  EXPECT_EQ(download.answer().head.header("x-kind"), "video");
  download.answer().file->moveTo(world->folder() / "clip.mp4");
  EXPECT_EQ(world->contentAt(world->folder() / "clip.mp4"), "content");
  EXPECT_EQ(world->filesInFolder(), 1U);
}

TEST_P(HttpDownloadContract, ADownloadOfNothingIsAnEmptyFile) {
  world->answer("GET", "/jobs/1/result", {});
  const auto transfer =
      world->session().download(get("/jobs/1/result"), world->folder(), download.callback());
  ASSERT_TRUE(settled(download));
  download.answer().file->moveTo(world->folder() / "clip.mp4");
  EXPECT_EQ(world->contentAt(world->folder() / "clip.mp4"), "");
}

TEST_P(HttpDownloadContract, ADownloadIsNotBoundByMemory) {
  const std::string large(HttpWorld::memoryLimit + 1, 'x');
  world->answer("GET", "/jobs/1/result", {.body = large});
  const auto transfer =
      world->session().download(get("/jobs/1/result"), world->folder(), download.callback());
  ASSERT_TRUE(settled(download));
  download.answer().file->moveTo(world->folder() / "clip.mp4");
  EXPECT_TRUE(world->contentAt(world->folder() / "clip.mp4") == large);
}

TEST_P(HttpDownloadContract, ADownloadWithAnErrorStatusIsTheCallersToJudge) {
  world->answer("GET", "/jobs/1/result", {.status = 404, .body = "gone"});
  const auto transfer =
      world->session().download(get("/jobs/1/result"), world->folder(), download.callback());
  ASSERT_TRUE(settled(download));
  EXPECT_EQ(download.answer().head.status, 404);
  EXPECT_NE(download.answer().file, nullptr);
}

TEST_P(HttpDownloadContract, ADownloadOfWhatIsNotHttpHasNoStatus) {
  world->answer("GET", "/jobs/1/result", ScriptedAnswer::notHttp());
  const auto transfer =
      world->session().download(get("/jobs/1/result"), world->folder(), download.callback());
  ASSERT_TRUE(settled(download));
  EXPECT_EQ(download.failure(), "no failure");
  EXPECT_EQ(download.answer().head.status, std::nullopt);
}

TEST_P(HttpDownloadContract, ADownloadedFileThatNobodyMovesIsRemoved) {
  world->answer("GET", "/jobs/1/result", {.body = "content"});
  auto transfer = world->session().download(get("/jobs/1/result"), world->folder(), download.callback());
  ASSERT_TRUE(settled(download));
  EXPECT_EQ(world->filesInFolder(), 1U);
  download.outcomes.clear();
  transfer.reset();
  EXPECT_EQ(world->filesInFolder(), 0U);
}

TEST_P(HttpDownloadContract, ADownloadThatFailsLeavesNoFile) {
  world->cutShort("GET", "/jobs/1/result");
  std::size_t filesAtTheEnd = 99;
  const auto transfer =
      world->session().download(get("/jobs/1/result"), world->folder(), [&](Outcome<HttpDownload> outcome) {
        filesAtTheEnd = world->filesInFolder();
        download.outcomes.push_back(std::move(outcome));
      });
  ASSERT_TRUE(settled(download));
  EXPECT_EQ(download.failure(), "The answer of the local processor was cut short.");
  EXPECT_EQ(filesAtTheEnd, 0U);
}

TEST_P(HttpDownloadContract, ADownloadOutlivesTheTimeoutAsLongAsBytesArrive) {
  world->answer("GET", "/jobs/1/result", {.body = "abcdef", .pieces = 6, .pieceInterval = 300ms});
  HttpRequest request = get("/jobs/1/result");
  request.timeout = shortTimeout;
  const auto transfer = world->session().download(request, world->folder(), download.callback());
  ASSERT_TRUE(settled(download));
  ASSERT_EQ(download.failure(), "no failure");
  download.answer().file->moveTo(world->folder() / "clip.mp4");
  EXPECT_EQ(world->contentAt(world->folder() / "clip.mp4"), "abcdef");
}

TEST_P(HttpDownloadContract, ADownloadThatFallsSilentLeavesNoFile) {
  world->answer("GET", "/jobs/1/result", {.body = "ab", .pieces = 2, .pieceInterval = 5s});
  HttpRequest request = get("/jobs/1/result");
  request.timeout = shortTimeout;
  const auto transfer = world->session().download(request, world->folder(), download.callback());
  ASSERT_TRUE(settled(download));
  EXPECT_EQ(download.failure(), "The request timed out.");
  EXPECT_EQ(world->filesInFolder(), 0U);
}

TEST_P(HttpDownloadContract, ADroppedDownloadLeavesNoFileAndCallsNothingBack) {
  world->answer("GET", "/jobs/1/result", {.body = "abcd", .pieces = 4, .pieceInterval = 100ms});
  auto transfer = world->session().download(get("/jobs/1/result"), world->folder(), download.callback());
  ASSERT_TRUE(isSeen(1));
  EXPECT_EQ(world->filesInFolder(), 1U);
  transfer.reset();
  EXPECT_EQ(world->filesInFolder(), 0U);
  world->settle();
  EXPECT_THAT(download.outcomes, IsEmpty());
  EXPECT_EQ(world->filesInFolder(), 0U);
}

TEST_P(HttpDownloadContract, ADownloadDroppedAfterItsEndWasQueuedLeavesNoFile) {
  world->answer("GET", "/jobs/1/result", {.body = "content"});
  auto transfer = world->session().download(get("/jobs/1/result"), world->folder(), download.callback());
  world->awaitQueuedTurn();
  transfer.reset();
  EXPECT_EQ(world->filesInFolder(), 0U);
  world->settle();
  EXPECT_THAT(download.outcomes, IsEmpty());
}

TEST_P(HttpDownloadContract, ADownloadOfAnEndedSessionLeavesNoFile) {
  world->answer("GET", "/jobs/1/result", {.body = "abcd", .pieces = 4, .pieceInterval = 100ms});
  auto transfer = world->session().download(get("/jobs/1/result"), world->folder(), download.callback());
  ASSERT_TRUE(isSeen(1));
  world->endSession();
  transfer.reset();
  world->settle();
  EXPECT_THAT(download.outcomes, IsEmpty());
  EXPECT_EQ(world->filesInFolder(), 0U);
}

TEST_P(HttpDownloadContract, ADownloadWithoutAFolderFailsAndSendsNothing) {
  const auto transfer =
      world->session().download(get("/jobs/1/result"), world->folder() / "missing", download.callback());
  EXPECT_THAT(download.outcomes, IsEmpty());
  ASSERT_TRUE(settled(download));
  EXPECT_THAT(download.failure(), ::testing::StartsWith("No file could be made"));
  EXPECT_THAT(world->seen(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Scripted, HttpContract, ::testing::Values(&makeScriptedWorld));
INSTANTIATE_TEST_SUITE_P(Beast, HttpContract, ::testing::Values(&makeSplicingWorld));
INSTANTIATE_TEST_SUITE_P(Scripted, HttpDownloadContract, ::testing::Values(&makeScriptedWorld));
INSTANTIATE_TEST_SUITE_P(BeastSplicing, HttpDownloadContract, ::testing::Values(&makeSplicingWorld));
INSTANTIATE_TEST_SUITE_P(BeastCopying, HttpDownloadContract, ::testing::Values(&makeCopyingWorld));

}  // namespace
}  // namespace zunto::testing
