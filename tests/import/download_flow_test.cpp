// The download job: its request, the polling, the failure path and the cancellation.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "import_world.h"

namespace zunto {
namespace {

using ::testing::HasSubstr;
using testing::ImportWorld;
using ::testing::IsEmpty;
using testing::jobJson;
using testing::link;
using ::testing::Not;
using testing::pollPause;
using testing::RecordedRequest;
using testing::ScriptedAnswer;
using ::testing::TestParamInfo;
using ::testing::TestWithParam;
using ::testing::ValuesIn;

const std::string starting = "Starting local download…";
const std::string cancelled = "Download cancelled.";

/// The members that every job body starts with.
const std::string commonMembers =
    R"({"sourceUrl":"https://example.org/watch?v=1","permissionConfirmed":true)";

/// What is sent as the job body after an analysis that found `media` and the user's choices in `choose`.
std::string jobBodyAfter(const std::string& media, const std::function<void(ImportForm&)>& choose) {
  ImportWorld world;
  world.analyzed(media);
  choose(world.form());
  world.acceptJob();
  // Some of these choices the button would refuse; what follows a press must hold for them too.
  world.controller->startDownload();
  world.settle();
  return world.http.requests("POST", "/jobs").at(0).body.value_or("no body");
}

std::string jobBody(std::size_t mode, const std::string& media = testing::richMedia) {
  return jobBodyAfter(media, [mode](ImportForm& form) { form.modePopup.userSelected(mode); });
}

// ---- The job body, key by key.

struct BodyRow {
  std::string name;
  std::string media;
  std::function<void(ImportForm&)> choose;
  std::string rest;  ///< what follows the common members

  friend void PrintTo(const BodyRow& row, std::ostream* out) { *out << row.name; }
};

class JobBodyTable : public TestWithParam<BodyRow> {};

TEST_P(JobBodyTable, HoldsExactlyTheseKeys) {
  EXPECT_EQ(jobBodyAfter(GetParam().media, GetParam().choose), commonMembers + GetParam().rest + "}");
}

std::function<void(ImportForm&)> mode(std::size_t index) {
  return [index](ImportForm& form) { form.modePopup.userSelected(index); };
}

std::function<void(ImportForm&)> subtitle(std::size_t track, std::size_t format) {
  return [track, format](ImportForm& form) {
    form.modePopup.userSelected(2);
    form.subtitlePopup.userSelected(track);
    form.subtitleFormatPopup.userSelected(format);
  };
}

std::vector<BodyRow> bodyRows() {
  using testing::richMedia;
  return {
      {"modeVideo", richMedia, mode(0), R"(,"mode":"video","quality":"1080p")"},
      {"modeAudio", richMedia, mode(1), R"(,"mode":"audio")"},
      {"modeSubtitle", richMedia, mode(2),
       R"(,"mode":"subtitle","subtitleLanguage":"ja-1","subtitleFormat":"vtt")"},
      {"qualityIsTheSelectedTitle", richMedia, [](ImportForm& form) { form.qualityPopup.userSelected(1); },
       R"(,"mode":"video","quality":"720p")"},
      {"qualityIsTheTitleAsShownEvenWhenNoneIsAvailable", R"("title":"t")", mode(0),
       R"(,"mode":"video","quality":"No video quality available")"},
      {"qualityIsEmptyWhenNothingIsSelected", richMedia,
       [](ImportForm& form) { form.qualityPopup.setItems({}); }, R"(,"mode":"video","quality":"")"},
      {"subtitleLanguageIsTheIdentifierOfTheTrackAtTheIndex", richMedia, subtitle(1, 0),
       R"(,"mode":"subtitle","subtitleLanguage":"de-1","subtitleFormat":"vtt")"},
      {"subtitleLanguageIsToldApartByIndexWhenTitlesAreEqual",
       R"("subtitles":[{"id":"a","label":"English"},{"id":"b","label":"English"}])", subtitle(1, 0),
       R"(,"mode":"subtitle","subtitleLanguage":"b","subtitleFormat":"vtt")"},
      {"subtitleLanguageIsAbsentWithoutAList", R"("title":"t")", subtitle(0, 1), R"(,"mode":"subtitle")"},
      {"subtitleLanguageIsAbsentWithAnEmptyList", R"("subtitles":[])", subtitle(0, 1),
       R"(,"mode":"subtitle")"},
      {"subtitleLanguageIsAbsentWhenTheIndexLiesOutside", R"("subtitles":[{"id":"a"}])",
       [](ImportForm& form) {
         form.modePopup.userSelected(2);
         form.subtitlePopup.setItems({"a", "one too many"});
         form.subtitlePopup.userSelected(1);
       },
       R"(,"mode":"subtitle")"},
      {"subtitleFormatVtt", richMedia, subtitle(0, 0),
       R"(,"mode":"subtitle","subtitleLanguage":"en-1","subtitleFormat":"vtt")"},
      {"subtitleFormatSrt", richMedia, subtitle(0, 1),
       R"(,"mode":"subtitle","subtitleLanguage":"en-1","subtitleFormat":"srt")"},
      {"subtitleFormatIsSrtForAnyOtherIndex", richMedia,
       [](ImportForm& form) {
         subtitle(0, 0)(form);
         form.subtitleFormatPopup.setItems({});
       },
       R"(,"mode":"subtitle","subtitleLanguage":"en-1","subtitleFormat":"srt")"},
      {"browserLoginAbsent", richMedia,
       [](ImportForm& form) {
         form.browserPopup.userSelected(0);
         form.modePopup.userSelected(1);
       },
       R"(,"mode":"audio")"},
      {"browserLoginChrome", richMedia,
       [](ImportForm& form) {
         form.browserPopup.userSelected(1);
         form.modePopup.userSelected(1);
       },
       R"(,"browserLogin":"chrome","mode":"audio")"},
      {"browserLoginSafari", richMedia,
       [](ImportForm& form) {
         form.browserPopup.userSelected(2);
         form.modePopup.userSelected(1);
       },
       R"(,"browserLogin":"safari","mode":"audio")"},
  };
}

INSTANTIATE_TEST_SUITE_P(Rows, JobBodyTable, ValuesIn(bodyRows()),
                         [](const TestParamInfo<BodyRow>& row) { return row.param.name; });

TEST(JobBodyEdgeCases, AnAudioJobHoldsNeitherAQualityNorSubtitleKeys) {
  const std::string body = jobBody(1);
  EXPECT_THAT(body, Not(HasSubstr("quality")));
  EXPECT_THAT(body, Not(HasSubstr("subtitleLanguage")));
  EXPECT_THAT(body, Not(HasSubstr("subtitleFormat")));
}

TEST(JobBodyEdgeCases, ASubtitleJobWithoutASubtitleListHoldsNoSubtitleKeys) {
  const std::string body = jobBody(2, R"("title":"t")");
  EXPECT_THAT(body, Not(HasSubstr("subtitleLanguage")));
  EXPECT_THAT(body, Not(HasSubstr("subtitleFormat")));
}

TEST(JobBodyEdgeCases, AnonymousAccessSendsNoBrowserLoginAtAll) {
  EXPECT_THAT(jobBody(0), Not(HasSubstr("browserLogin")));
}

// ---- What each word of a job's status does to the polling.

struct StatusRow {
  std::string name;
  std::string word;
  enum class Outcome { pollsAgain, saves, fails } outcome;
  std::string shown;  ///< the word as the status line shows it while the job runs

  friend void PrintTo(const StatusRow& row, std::ostream* out) { *out << row.name; }
};

class JobStatusTable : public TestWithParam<StatusRow> {};

TEST_P(JobStatusTable, DecidesWhetherThePollingGoesOn) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  world.answerPoll("job-1", GetParam().word, testing::fileResult);
  world.keepAnsweringPoll("job-1", "queued");
  world.clickDownload();
  const bool goesOn = GetParam().outcome == StatusRow::Outcome::pollsAgain;
  EXPECT_EQ(world.fields().activeJobId.has_value(), goesOn);
  EXPECT_EQ(world.form().cancelButton.isHidden(), !goesOn);
  EXPECT_EQ(world.panels.panels().size(), GetParam().outcome == StatusRow::Outcome::saves ? 1U : 0U);
  EXPECT_EQ(world.beeper.beeps(), GetParam().outcome == StatusRow::Outcome::fails ? 1 : 0);
  EXPECT_EQ(world.status(), GetParam().shown);
  world.clock.advance(pollPause);
  EXPECT_EQ(world.requestCount("GET", "/jobs/job-1"), goesOn ? 2U : 1U);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, JobStatusTable,
    ValuesIn(std::vector<StatusRow>{
        {"queued", "queued", StatusRow::Outcome::pollsAgain, "Queued"},
        {"probing", "probing", StatusRow::Outcome::pollsAgain, "Probing"},
        {"downloading", "downloading", StatusRow::Outcome::pollsAgain, "Downloading"},
        {"processing", "processing", StatusRow::Outcome::pollsAgain, "Processing"},
        {"completed", "completed", StatusRow::Outcome::saves, "Completed"},
        {"failed", "failed", StatusRow::Outcome::fails, "The job did not complete."},
        {"cancelled", "cancelled", StatusRow::Outcome::fails, "The job did not complete."},
        {"completedInOtherLetters", "Completed", StatusRow::Outcome::fails, "The job did not complete."},
        {"queuedInOtherLetters", "QUEUED", StatusRow::Outcome::fails, "The job did not complete."},
        {"leadingBlank", " queued", StatusRow::Outcome::fails, "The job did not complete."},
        {"trailingBlank", "downloading ", StatusRow::Outcome::fails, "The job did not complete."},
        {"beginningOfAWord", "process", StatusRow::Outcome::fails, "The job did not complete."},
        {"longerThanAWord", "queued2", StatusRow::Outcome::fails, "The job did not complete."},
        {"completedWithABlank", "completed ", StatusRow::Outcome::fails, "The job did not complete."},
        {"unknownWord", "paused", StatusRow::Outcome::fails, "The job did not complete."},
        {"emptyWord", "", StatusRow::Outcome::fails, "The job did not complete."}}),
    [](const TestParamInfo<StatusRow>& row) { return row.param.name; });

// ---- The states of a download as the form shows them.

TEST(DownloadStateTable, IdleWithAnalysis) {
  ImportWorld world;
  world.analyzed();
  EXPECT_TRUE(world.form().startButton.isEnabled());
  EXPECT_TRUE(world.form().cancelButton.isHidden());
}

TEST(DownloadStateTable, Starting) {
  ImportWorld world;
  world.analyzed();
  world.http.answer("POST", "/jobs", ScriptedAnswer::silence());
  world.clickDownload();
  EXPECT_TRUE(world.inputsAreDisabled());
  EXPECT_FALSE(world.form().cancelButton.isHidden());
  EXPECT_EQ(world.status(), starting);
  EXPECT_FALSE(world.fields().activeJobId);
}

TEST(DownloadStateTable, Polling) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  world.answerPoll("job-1", "downloading", R"("progress":12.5,"stage":"Video, 3 of 9 MB")");
  world.answerPoll("job-1", "processing", R"("progress":80)");
  world.keepAnsweringPoll("job-1", "processing");
  world.clickDownload();
  EXPECT_EQ(world.fields().activeJobId, "job-1");
  EXPECT_EQ(world.form().progress.value(), 12.5);
  EXPECT_EQ(world.status(), "Video, 3 of 9 MB");
  world.clock.advance(pollPause);
  EXPECT_EQ(world.form().progress.value(), 80);
  EXPECT_EQ(world.status(), "Processing");
}

TEST(DownloadStateTable, Completed) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel();
  EXPECT_FALSE(world.fields().activeJobId);
  EXPECT_TRUE(world.form().cancelButton.isHidden());
  EXPECT_TRUE(world.inputsAreDisabled());
}

TEST(DownloadStateTable, Failed) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  world.answerPoll("job-1", "failed", R"("error":{"message":"The site said no."})");
  world.clickDownload();
  EXPECT_TRUE(world.inputsAreEnabled());
  EXPECT_TRUE(world.form().startButton.isEnabled());
  EXPECT_TRUE(world.form().cancelButton.isHidden());
  EXPECT_EQ(world.status(), "The site said no.");
  EXPECT_EQ(world.beeper.beeps(), 1);
}

TEST(DownloadStateTable, Cancelled) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  world.http.answer("POST", "/jobs/job-1/cancel", {.body = "null"});
  world.clickCancel();
  EXPECT_TRUE(world.inputsAreEnabled());
  EXPECT_TRUE(world.form().startButton.isEnabled());
  EXPECT_TRUE(world.form().cancelButton.isHidden());
  EXPECT_EQ(world.status(), cancelled);
}

// ---- Every way in which a download fails before its file is saved.

struct FailureRow {
  std::string name;
  std::function<void(ImportWorld&)> script;
  std::string status;

  friend void PrintTo(const FailureRow& row, std::ostream* out) { *out << row.name; }
};

class DownloadFailureTable : public TestWithParam<FailureRow> {};

TEST_P(DownloadFailureTable, ShowsTheMessageBeepsAndGivesTheControlsBack) {
  ImportWorld world;
  world.analyzed();
  GetParam().script(world);
  world.clickDownload();
  world.clock.advance(std::chrono::seconds(61));
  EXPECT_EQ(world.status(), GetParam().status);
  EXPECT_EQ(world.beeper.beeps(), 1);
  EXPECT_TRUE(world.inputsAreEnabled());
  EXPECT_TRUE(world.form().startButton.isEnabled());
  EXPECT_TRUE(world.form().cancelButton.isHidden());
  EXPECT_FALSE(world.fields().pollTask);
  EXPECT_FALSE(world.fields().activeJobId);
}

FailureRow failedStart(const std::string& name, const ScriptedAnswer& answer, const std::string& status) {
  return {name, [answer](ImportWorld& world) { world.http.answer("POST", "/jobs", answer); }, status};
}

FailureRow failedPoll(const std::string& name, const ScriptedAnswer& answer, const std::string& status) {
  return {name,
          [answer](ImportWorld& world) {
            world.acceptJob();
            world.answerPoll("job-1", "downloading");
            world.http.answer("GET", "/jobs/job-1", answer);
          },
          status};
}

INSTANTIATE_TEST_SUITE_P(
    Rows, DownloadFailureTable,
    ValuesIn(std::vector<FailureRow>{
        failedStart("startTransport", ScriptedAnswer::transportFailure("Nobody listens."), "Nobody listens."),
        failedStart("startTimedOut", ScriptedAnswer::silence(), "The request timed out."),
        failedStart("startErrorEnvelope",
                    {.status = 401, .body = R"({"error":{"message":"The session is over."}})"},
                    "The session is over."),
        failedStart("startErrorOfAnotherShape", {.status = 500, .body = ""},
                    "The local processor returned an error."),
        failedStart("startUndecodable", {.status = 200, .body = R"({"status":"queued"})"},
                    "The local processor's answer could not be read: job.jobId is missing."),
        failedPoll("pollTransport", ScriptedAnswer::transportFailure("Nobody listens."), "Nobody listens."),
        failedPoll("pollTimedOut", ScriptedAnswer::silence(), "The request timed out."),
        failedPoll("pollErrorEnvelope", {.status = 404, .body = R"({"error":{"message":"No such job."}})"},
                   "No such job."),
        failedPoll("pollErrorOfAnotherShape", {.status = 404, .body = "<html>"},
                   "The local processor returned an error."),
        failedPoll("pollUndecodable", {.status = 200, .body = R"({"jobId":"job-1"})"},
                   "The local processor's answer could not be read: job.status is missing."),
        failedPoll("jobEndedWithMessage",
                   {.body = jobJson("job-1", "failed", R"("error":{"message":"Disk full."})")}, "Disk full."),
        failedPoll("jobEndedWithAnEmptyMessage",
                   {.body = jobJson("job-1", "failed", R"("error":{"message":""})")}, ""),
        failedPoll("jobEndedWithANullCharacterInItsMessage",
                   {.body = jobJson("job-1", "failed", R"("error":{"message":"before\u0000after"})")},
                   std::string("before\0after", 12)),
        failedPoll("pollEnvelopeWithANullCharacter",
                   {.status = 500, .body = R"({"error":{"message":"before\u0000after"}})"},
                   std::string("before\0after", 12)),
        failedPoll("jobEndedWithoutMessage", {.body = jobJson("job-1", "failed")},
                   "The job did not complete."),
        failedPoll("jobEndedWithAnUnknownWord", {.body = jobJson("job-1", "evicted")},
                   "The job did not complete.")}),
    [](const TestParamInfo<FailureRow>& row) { return row.param.name; });

TEST(DownloadFailures, ALinkThatIsNotUtf8CannotBeWrittenAndNothingIsSent) {
  ImportWorld world;
  world.analyzed();
  world.form().urlField.userEdited("https://example.org/\xff");
  world.clickDownload();
  EXPECT_EQ(world.requestCount("POST", "/jobs"), 0U);
  EXPECT_THAT(world.status(), HasSubstr("sourceUrl"));
  EXPECT_EQ(world.beeper.beeps(), 1);
  EXPECT_TRUE(world.form().cancelButton.isHidden());
}

// ---- The cases that are easy to get wrong.

TEST(DownloadFlowEdgeCases, AudioOnlySendsNeitherAQualityNorSubtitleKeys) {
  EXPECT_EQ(jobBody(1), commonMembers + R"(,"mode":"audio"})");
}

TEST(DownloadFlowEdgeCases, SourceSubtitleWithoutTracksSendsNoSubtitleKeysAndIsStillSent) {
  ImportWorld world;
  world.analyzed(R"("title":"t")");
  world.form().modePopup.userSelected(2);
  world.acceptJob();
  world.controller->startDownload();
  world.settle();
  EXPECT_EQ(world.http.requests("POST", "/jobs").at(0).body, commonMembers + R"(,"mode":"subtitle"})");
}

TEST(DownloadFlowEdgeCases, ThreeQueuedAnswersAndACompletedOneAreFourRequestsAndThenTheSaveStep) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  for (int i = 0; i < 3; ++i) world.answerPoll("job-1", "queued");
  world.answerPoll("job-1", "completed", testing::fileResult);
  world.clickDownload();
  world.clock.advance(std::chrono::milliseconds(2099));
  EXPECT_THAT(world.panels.panels(), IsEmpty());
  world.clock.advance(std::chrono::milliseconds(1));
  EXPECT_EQ(world.panels.panels().size(), 1U);
  const auto polls = world.http.requests("GET", "/jobs/job-1");
  ASSERT_EQ(polls.size(), 4U);
  for (std::size_t i = 1; i < polls.size(); ++i) EXPECT_EQ(polls[i].time - polls[i - 1].time, pollPause);
}

TEST(DownloadFlowEdgeCases, AJobThatFailsShowsItsMessageOrTheFixedOneWithABeep) {
  for (const auto& [members, shown] :
       {std::pair<std::string, std::string>{R"("error":{"message":"Geo-blocked."})", "Geo-blocked."},
        {"", "The job did not complete."}}) {
    ImportWorld world;
    world.analyzed();
    world.acceptJob();
    world.answerPoll("job-1", "failed", members);
    world.clickDownload();
    EXPECT_EQ(world.status(), shown);
    EXPECT_EQ(world.beeper.beeps(), 1);
  }
}

TEST(DownloadFlowEdgeCases, AJobWithoutProgressResetsTheBar) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  world.answerPoll("job-1", "downloading", R"("progress":60)");
  world.answerPoll("job-1", "processing");
  world.keepAnsweringPoll("job-1", "processing");
  world.clickDownload();
  EXPECT_EQ(world.form().progress.value(), 60);
  world.clock.advance(pollPause);
  EXPECT_EQ(world.form().progress.value(), 0);
}

TEST(DownloadFlowEdgeCases, CancelWithoutARunningJobDoesNothing) {
  ImportWorld world;
  world.analyzed();
  const std::string before = world.status();
  const std::size_t sent = world.http.requests().size();
  world.controller->cancelJob();
  world.settle();
  EXPECT_EQ(world.http.requests().size(), sent);
  EXPECT_EQ(world.status(), before);
  EXPECT_EQ(world.beeper.beeps(), 0);
}

TEST(DownloadFlowEdgeCases, ALinkEditedAfterTheAnalysisIsSentAsEditedAndUntrimmed) {
  ImportWorld world;
  world.analyzed();
  world.form().urlField.userEdited("  http://edited.example/ü b ");
  world.form().modePopup.userSelected(1);
  world.acceptJob();
  world.clickDownload();
  EXPECT_EQ(world.http.requests("POST", "/jobs").at(0).body,
            R"({"sourceUrl":"  http://edited.example/ü b ","permissionConfirmed":true,"mode":"audio"})");
}

// ---- The flow.

TEST(DownloadFlow, WithoutAnAnalysedJobChangesNothing) {
  ImportWorld world;
  world.beReady();
  const std::string before = world.status();
  world.controller->startDownload();
  world.settle();
  EXPECT_EQ(world.status(), before);
  EXPECT_TRUE(world.inputsAreEnabled());
  EXPECT_TRUE(world.form().cancelButton.isHidden());
  EXPECT_EQ(world.requestCount("POST", "/jobs"), 0U);
}

TEST(DownloadFlow, DoesNotAskForPermissionAgain) {
  ImportWorld world;
  world.analyzed();
  world.form().permissionCheck.userToggled();
  world.form().modePopup.userSelected(1);
  EXPECT_FALSE(world.form().permissionCheck.isOn());
  world.downloading();
  EXPECT_EQ(world.http.requests("POST", "/jobs").at(0).body, commonMembers + R"(,"mode":"audio"})");
}

TEST(DownloadFlow, NeverRunsTheReadinessStep) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  EXPECT_EQ(world.helper.calls(), 1);
  EXPECT_EQ(world.requestCount("GET", "/health"), 1U);
}

TEST(DownloadFlow, SendsTheTokenWithTheJobAndNotWithThePolls) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  EXPECT_EQ(world.http.requests("POST", "/jobs").at(0).header("Authorization"), "Bearer token-1");
  EXPECT_EQ(world.http.requests("GET", "/jobs/job-1").at(0).header("Authorization"), std::nullopt);
}

TEST(DownloadFlow, PollsTheIdentifierOfTheStartsAnswer) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob("another");
  world.http.answerAlways("GET", "/jobs/another", {.body = jobJson("renamed", "downloading")});
  world.clickDownload();
  world.clock.advance(pollPause);
  EXPECT_EQ(world.fields().activeJobId, "another");
  EXPECT_EQ(world.requestCount("GET", "/jobs/another"), 2U);
}

TEST(DownloadFlow, NeitherJudgesNorShowsTheAnswerOfTheStartItself) {
  for (const char* word : {"completed", "failed", "queued"}) {
    ImportWorld world;
    world.analyzed();
    world.http.answer(
        "POST", "/jobs",
        {.body = jobJson(
             "job-1", word,
             testing::fileResult + R"(,"progress":33,"stage":"Not shown","error":{"message":"Nor this"})")});
    world.http.answer("GET", "/jobs/job-1",
                      {.body = jobJson("job-1-own", "downloading"), .delay = std::chrono::seconds(1)});
    world.clickDownload();
    EXPECT_EQ(world.requestCount("GET", "/jobs/job-1"), 1U) << word;
    EXPECT_EQ(world.status(), starting) << word;
    EXPECT_EQ(world.form().progress.value(), 100) << word;  // as the analysis left it
    EXPECT_THAT(world.panels.panels(), IsEmpty()) << word;
    EXPECT_EQ(world.beeper.beeps(), 0) << word;
  }
}

TEST(DownloadFlow, ACompletedJobThatCarriesAnErrorIsASuccess) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel(testing::fileResult + R"(,"error":{"message":"A warning, no more."})");
  EXPECT_EQ(world.beeper.beeps(), 0);
}

TEST(DownloadFlow, FollowsAnIdentifierWithEveryMarkThatAPathMayHold) {
  const std::string identifier = "Job_1.a:b+c=D~-(e)@F";
  ImportWorld world;
  world.analyzed();
  world.acceptJob(identifier);
  world.keepAnsweringPoll(identifier, "downloading");
  world.clickDownload();
  EXPECT_EQ(world.requestCount("GET", "/jobs/" + identifier), 1U);
  world.clickCancel();
  EXPECT_EQ(world.requestCount("POST", "/jobs/" + identifier + "/cancel"), 1U);
}

TEST(DownloadFlow, TakesProgressInPercentHoweverSmall) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  world.answerPoll("job-1", "downloading", R"("progress":0.5)");
  world.keepAnsweringPoll("job-1", "downloading", R"("progress":1)");
  world.clickDownload();
  EXPECT_EQ(world.form().progress.value(), 0.5);
  world.clock.advance(pollPause);
  EXPECT_EQ(world.form().progress.value(), 1);
}

TEST(DownloadFlow, ShowsAnEmptyStageAsItIs) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  world.keepAnsweringPoll("job-1", "downloading", R"("stage":"")");
  world.clickDownload();
  EXPECT_EQ(world.status(), "");
}

TEST(DownloadFlow, AFailureAndACancellationLeaveTheBarWhereItStood) {
  for (const bool isCancelled : {true, false}) {
    ImportWorld world;
    world.analyzed();
    world.acceptJob();
    world.answerPoll("job-1", "downloading", R"("progress":60)");
    world.http.answer("GET", "/jobs/job-1", ScriptedAnswer::transportFailure("It is gone."));
    world.http.answer("POST", "/jobs/job-1/cancel", {.body = "null"});
    world.clickDownload();
    if (isCancelled) world.clickCancel();
    world.clock.advance(pollPause);
    EXPECT_EQ(world.status(), isCancelled ? cancelled : "It is gone.");
    EXPECT_EQ(world.form().progress.value(), 60);
  }
}

TEST(DownloadFlow, AChangeOfTheModeJudgesDownloadAlsoWhileTheFormIsBusy) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  ASSERT_FALSE(world.form().startButton.isEnabled());
  world.form().modePopup.userSelected(1);
  EXPECT_TRUE(world.form().startButton.isEnabled());
  EXPECT_TRUE(world.inputsAreDisabled());
}

TEST(DownloadFlow, AfterAFailureDownloadFollowsTheAnalysedJobAloneNotTheMode) {
  ImportWorld world;
  world.analyzed(R"("formats":[{"quality":"q"}])");
  world.downloading();
  world.form().modePopup.userSelected(2);  // no tracks: the mode refuses
  ASSERT_FALSE(world.form().startButton.isEnabled());
  world.http.answer("GET", "/jobs/job-1", ScriptedAnswer::transportFailure("It is gone."));
  world.clock.advance(pollPause);
  EXPECT_EQ(world.status(), "It is gone.");
  EXPECT_TRUE(world.form().startButton.isEnabled());
}

TEST(DownloadFlow, PausesBetweenTheEndOfOneAnswerAndTheNextRequest) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  world.http.answerAlways("GET", "/jobs/job-1",
                          {.body = jobJson("job-1", "downloading"), .delay = std::chrono::milliseconds(300)});
  world.clickDownload();
  world.clock.advance(std::chrono::milliseconds(999));
  EXPECT_EQ(world.requestCount("GET", "/jobs/job-1"), 1U);
  world.clock.advance(std::chrono::milliseconds(1));
  EXPECT_EQ(world.requestCount("GET", "/jobs/job-1"), 2U);
}

TEST(DownloadFlow, PollsWithoutLimit) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  world.clock.advance(pollPause * 5000);
  EXPECT_EQ(world.requestCount("GET", "/jobs/job-1"), 5001U);
  EXPECT_EQ(world.fields().activeJobId, "job-1");
}

TEST(DownloadFlow, KeepsProgressWithinTheBar) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  world.answerPoll("job-1", "downloading", R"("progress":1e300)");
  world.answerPoll("job-1", "downloading", R"("progress":-5)");
  world.keepAnsweringPoll("job-1", "downloading");
  world.clickDownload();
  EXPECT_EQ(world.form().progress.value(), 100);
  world.clock.advance(pollPause);
  EXPECT_EQ(world.form().progress.value(), 0);
}

TEST(DownloadFlow, ShowsProgressAndStageOfTheLastAnswerBeforeItIsJudged) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel(testing::fileResult + R"(,"progress":99,"stage":"Done")");
  EXPECT_EQ(world.form().progress.value(), 99);
  EXPECT_EQ(world.status(), "Done");
}

TEST(DownloadFlow, AfterACancellationDownloadFollowsTheAnalysedJobAloneNotTheMode) {
  ImportWorld world;
  world.analyzed(R"("formats":[{"quality":"q"}])");
  world.downloading();
  world.form().modePopup.userSelected(2);  // no tracks: the mode refuses
  ASSERT_FALSE(world.form().startButton.isEnabled());
  world.clickCancel();
  EXPECT_EQ(world.status(), cancelled);
  EXPECT_TRUE(world.form().startButton.isEnabled());
}

TEST(DownloadDeathTest, AModePopUpWithoutASelectionEndsTheProgram) {
  ImportWorld world;
  world.analyzed();
  world.form().modePopup.setItems({});
  EXPECT_DEATH(
      {
        world.controller->startDownload();
        world.settle();
      },
      "fatal error: the output mode pop-up has no mode selected\n");
}

TEST(DownloadDeathTest, AModeIndexBeyondTheThreeEndsTheProgram) {
  ImportWorld world;
  world.analyzed();
  world.form().modePopup.setItems({"Video", "Audio only", "Source subtitle", "Fourth"}, 3);
  EXPECT_DEATH(
      {
        world.controller->startDownload();
        world.settle();
      },
      "fatal error: the output mode pop-up has no mode selected\n");
}

// ---- Cancelling.

TEST(Cancelling, BeforeTheJobHasAnIdentifierDoesNothing) {
  ImportWorld world;
  world.analyzed();
  world.http.answer("POST", "/jobs",
                    {.status = 202, .body = jobJson("job-1", "queued"), .delay = std::chrono::seconds(2)});
  world.keepAnsweringPoll("job-1", "downloading");
  world.clickDownload();
  ASSERT_FALSE(world.form().cancelButton.isHidden());
  world.clickCancel();
  EXPECT_EQ(world.status(), starting);
  EXPECT_TRUE(world.inputsAreDisabled());
  world.clock.advance(std::chrono::seconds(2));
  EXPECT_EQ(world.fields().activeJobId, "job-1");  // the download goes on
  EXPECT_EQ(world.status(), "Downloading");
  EXPECT_EQ(world.requestCount("POST", "/jobs/job-1/cancel"), 0U);
}

TEST(Cancelling, LeavesTheHandleOfTheTaskInPlace) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  world.form().cancelButton.userClicked();
  EXPECT_TRUE(world.fields().pollTask);
  EXPECT_EQ(world.fields().activeJobId, "job-1");
}

TEST(Cancelling, SendsAnEmptyObjectWithTheToken) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  world.http.answer("POST", "/jobs/job-1/cancel", {.body = jobJson("job-1", "cancelled")});
  world.clickCancel();
  const auto requests = world.http.requests("POST", "/jobs/job-1/cancel");
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_EQ(requests[0].body, "{}");
  EXPECT_EQ(requests[0].header("Authorization"), "Bearer token-1");
  EXPECT_EQ(world.status(), cancelled);
}

TEST(Cancelling, ShowsTheCancellationWithABeepUntilTheCancelIsAnswered) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  world.http.answer("POST", "/jobs/job-1/cancel", {.body = "null", .delay = std::chrono::seconds(1)});
  world.clickCancel();
  EXPECT_EQ(world.status(), Cancelled().message());
  EXPECT_EQ(world.beeper.beeps(), 1);
  EXPECT_TRUE(world.inputsAreEnabled());
  EXPECT_TRUE(world.form().cancelButton.isHidden());
  EXPECT_FALSE(world.fields().activeJobId);
  EXPECT_FALSE(world.fields().pollTask);
  world.clock.advance(std::chrono::seconds(1));
  EXPECT_EQ(world.status(), cancelled);
  EXPECT_EQ(world.beeper.beeps(), 1);
}

TEST(Cancelling, EndsThePollUnderWay) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  world.http.answer("GET", "/jobs/job-1", ScriptedAnswer::silence());
  world.clickDownload();
  world.clickCancel();
  EXPECT_EQ(world.http.requests("GET", "/jobs/job-1").at(0).fate, RecordedRequest::Fate::cancelled);
  world.clock.advance(std::chrono::minutes(5));
  EXPECT_EQ(world.requestCount("GET", "/jobs/job-1"), 1U);
}

TEST(Cancelling, NeverReportsTheFailureOfItsRequest) {
  for (const ScriptedAnswer& answer :
       {ScriptedAnswer{.status = 500, .body = R"({"error":{"message":"Not shown."}})"},
        ScriptedAnswer{.status = 200, .body = "not JSON"}, ScriptedAnswer::refusedConnection(),
        ScriptedAnswer::silence()}) {
    ImportWorld world;
    world.analyzed();
    world.downloading();
    world.http.answer("POST", "/jobs/job-1/cancel", answer);
    world.clickCancel();
    world.clock.advance(std::chrono::seconds(60));
    EXPECT_EQ(world.status(), cancelled);
    EXPECT_EQ(world.beeper.beeps(), 1);  // the ended poll's
    EXPECT_TRUE(world.inputsAreEnabled());
  }
}

TEST(Cancelling, MayOverwriteWhatANewerFlowHasWritten) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  world.http.answer("POST", "/jobs/job-1/cancel", {.body = "null", .delay = std::chrono::seconds(2)});
  world.clickCancel();
  world.acceptJob("job-2");
  world.keepAnsweringPoll("job-2", "downloading", R"("stage":"Second job")");
  world.clickDownload();
  ASSERT_EQ(world.status(), "Second job");
  ASSERT_EQ(world.fields().activeJobId, "job-2");
  world.clock.advance(std::chrono::seconds(2) - pollPause * 2);
  world.http.answer("GET", "/jobs/job-2", ScriptedAnswer::silence());
  world.clock.advance(pollPause * 2);
  EXPECT_EQ(world.status(), cancelled);
  EXPECT_FALSE(world.fields().activeJobId);
  EXPECT_TRUE(world.form().cancelButton.isHidden());
  EXPECT_TRUE(world.inputsAreEnabled());
  EXPECT_TRUE(world.fields().pollTask);  // the second job is still followed
}

TEST(Cancelling, TwiceBeforeAnyTurnSendsTwoRequests) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  world.http.answerAlways("POST", "/jobs/job-1/cancel", {.body = "null"});
  world.form().cancelButton.userClicked();
  world.form().cancelButton.userClicked();
  world.settle();
  EXPECT_EQ(world.requestCount("POST", "/jobs/job-1/cancel"), 2U);
  EXPECT_EQ(world.status(), cancelled);
}

TEST(Cancelling, APollAnswerThatIsAlreadyUnderWayWins) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  world.answerPoll("job-1", "completed", testing::fileResult);
  world.form().startButton.userClicked();
  world.runUntil([&world] { return world.requestCount("GET", "/jobs/job-1") == 1; });
  world.form().cancelButton.userClicked();
  world.settle();
  EXPECT_EQ(world.panels.openPanels(), 1U);  // completed before it could be cancelled
  EXPECT_EQ(world.requestCount("POST", "/jobs/job-1/cancel"), 1U);
}

// ---- One current task.

TEST(CurrentTask, ANewerOneCancelsTheOlderWhoseFailureClearsTheNewerHandle) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  world.controller->present(std::nullopt);  // gives the inputs back although the download goes on
  world.settle();
  world.http.answer("POST", "/probe", ScriptedAnswer::silence());
  world.form().analyzeButton.userClicked();
  EXPECT_TRUE(world.fields().pollTask);
  world.settle();
  EXPECT_EQ(world.beeper.beeps(), 1);  // the older task's end
  EXPECT_EQ(world.requestCount("POST", "/probe"), 2U);
  EXPECT_EQ(world.http.requests("POST", "/probe").at(1).fate, RecordedRequest::Fate::pending);
  EXPECT_EQ(world.status(), "Analyzing available formats…");  // the older one ended first
  EXPECT_TRUE(world.inputsAreDisabled());
  EXPECT_FALSE(world.fields().pollTask);  // cleared by the older, although the newer runs
  world.controller->window().userClosed();
  world.settle();
  EXPECT_EQ(world.http.requests("POST", "/probe").at(1).fate,
            RecordedRequest::Fate::pending);  // out of reach
}

TEST(CurrentTask, ACancelledPollThatNoticesAtTheTopOfItsLoopReturnsWithoutTouchingTheForm) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  world.form().startButton.userClicked();
  world.runUntil([&world] { return world.requestCount("POST", "/jobs") == 1; });
  world.controller->window().userClosed();  // the answer is under way already, and wins
  world.settle();
  EXPECT_EQ(world.requestCount("GET", "/jobs/job-1"), 0U);
  EXPECT_EQ(world.status(), starting);
  EXPECT_EQ(world.beeper.beeps(), 0);
  EXPECT_FALSE(world.form().cancelButton.isHidden());
  EXPECT_EQ(world.fields().activeJobId, "job-1");
  EXPECT_FALSE(world.fields().pollTask);
}

TEST(CurrentTask, OneThatIsCancelledBeforeItsFirstTurnStillRuns) {
  ImportWorld world;
  world.analyzed();
  world.form().startButton.userClicked();
  world.controller->window().userClosed();
  world.settle();
  EXPECT_EQ(world.requestCount("POST", "/jobs"), 0U);
  EXPECT_EQ(world.status(), Cancelled().message());
  EXPECT_EQ(world.beeper.beeps(), 1);
  EXPECT_TRUE(world.inputsAreEnabled());
}

}  // namespace
}  // namespace zunto
