// The analysis, from the press of the button to the filled form.
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

using ::testing::ElementsAre;
using testing::ImportWorld;
using ::testing::IsEmpty;
using testing::jobJson;
using testing::link;
using testing::RecordedRequest;
using testing::ScriptedAnswer;
using ::testing::TestParamInfo;
using ::testing::TestWithParam;
using ::testing::ValuesIn;

const std::string confirmFirst = "Confirm that you own this media or have permission to use it.";
const std::string notHttps = "Enter a valid HTTPS YouTube or Bilibili link.";
const std::string analyzing = "Analyzing available formats…";
const std::string complete = "Analysis complete. Choose an output and save it to your Mac.";

std::string probeBody(const std::string& sourceUrl, const std::string& more = {}) {
  return R"({"sourceUrl":")" + sourceUrl + R"(","permissionConfirmed":true)" + more + "}";
}

/// What a ready window sends as the body of its probe for `text` in the link field; none when nothing is
/// sent.
std::optional<std::string> probedBody(const std::string& text, std::size_t browserIndex = 0) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited(text);
  world.form().browserPopup.userSelected(browserIndex);
  world.acceptProbe();
  world.clickAnalyze();
  const auto probes = world.http.requests("POST", "/probe");
  return probes.empty() ? std::nullopt : probes.front().body;
}

// ---- The body of the probe, key by key.

TEST(AnalysisBodyTable, SourceUrlIsTheTrimmedAndParsedLink) {
  EXPECT_EQ(probedBody("\t" + link + "\n"), probeBody(link));
}

TEST(AnalysisBodyTable, PermissionConfirmedIsTheBooleanTrue) {
  EXPECT_THAT(probedBody(link).value(), ::testing::HasSubstr(R"("permissionConfirmed":true)"));
}

TEST(AnalysisBodyTable, BrowserLoginIsAbsentForAnonymousAccess) {
  EXPECT_EQ(probedBody(link, 0), probeBody(link));
}

TEST(AnalysisBodyTable, BrowserLoginIsAbsentWhereNothingIsChosen) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited(link);
  world.form().browserPopup.setItems({});
  world.acceptProbe();
  world.clickAnalyze();
  EXPECT_EQ(world.http.requests("POST", "/probe").at(0).body, probeBody(link));
}

TEST(AnalysisBodyTable, BrowserLoginIsChromeAtIndexOne) {
  EXPECT_EQ(probedBody(link, 1), probeBody(link, R"(,"browserLogin":"chrome")"));
}

TEST(AnalysisBodyTable, BrowserLoginIsSafariAtIndexTwo) {
  EXPECT_EQ(probedBody(link, 2), probeBody(link, R"(,"browserLogin":"safari")"));
}

TEST(AnalysisBodyTable, ModeIsAbsentWhateverThePopUpShows) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited(link);
  world.form().modePopup.userSelected(2);
  world.acceptProbe();
  world.clickAnalyze();
  EXPECT_EQ(world.http.requests("POST", "/probe").at(0).body, probeBody(link));
}

// ---- Every way in which an analysis fails.

struct FailureRow {
  std::string name;
  std::function<void(ImportWorld&)> fail;  ///< ends with the failure
  std::string status;
  int beeps;

  friend void PrintTo(const FailureRow& row, std::ostream* out) { *out << row.name; }
};

class AnalyzeFailureTable : public TestWithParam<FailureRow> {};

TEST_P(AnalyzeFailureTable, TellsTheUserAndLeavesTheInputsUsable) {
  ImportWorld world;
  world.form().urlField.userEdited(link);
  GetParam().fail(world);
  EXPECT_EQ(world.status(), GetParam().status);
  EXPECT_EQ(world.beeper.beeps(), GetParam().beeps);
  EXPECT_TRUE(world.form().statusLabel.isProblem());
  EXPECT_TRUE(world.inputsAreEnabled());
  EXPECT_FALSE(world.form().startButton.isEnabled());
  EXPECT_TRUE(world.form().cancelButton.isHidden());
  EXPECT_FALSE(world.fields().analyzedJob);
  EXPECT_FALSE(world.fields().activeJobId);
}

FailureRow refusedLink(const std::string& name, const std::string& text) {
  return {name,
          [text](ImportWorld& world) {
            world.form().urlField.userEdited(text);
            world.clickAnalyze();
            EXPECT_THAT(world.http.requests(), IsEmpty());
          },
          notHttps, 1};
}

FailureRow failedProbe(const std::string& name, const ScriptedAnswer& answer, const std::string& status) {
  return {name,
          [answer](ImportWorld& world) {
            world.offerToken();
            world.http.answer("POST", "/probe", answer);
            world.clickAnalyze();
            world.clock.advance(std::chrono::seconds(60));
          },
          status, 1};
}

FailureRow failedPoll(const std::string& name, const ScriptedAnswer& answer, const std::string& status) {
  return {name,
          [answer](ImportWorld& world) {
            world.offerToken();
            world.acceptProbe();
            world.answerPoll("probe-1", "probing");
            world.http.answer("GET", "/jobs/probe-1", answer);
            world.clickAnalyze();
            world.clock.advance(std::chrono::seconds(61));
          },
          status, 1};
}

std::vector<FailureRow> failureRows() {
  return {
      {"checkBoxOff",
       [](ImportWorld& world) {
         world.form().permissionCheck.userToggled();
         world.clickAnalyze();
         EXPECT_THAT(world.http.requests(), IsEmpty());
       },
       confirmFirst, 1},
      refusedLink("linkEmpty", ""),
      refusedLink("linkBlank", " \n"),
      refusedLink("linkUnparsable", "https://exa mple.org/"),
      refusedLink("linkWithoutScheme", "example.org/watch"),
      refusedLink("linkHttp", "http://example.org/watch"),
      refusedLink("linkHttpsInUpperCase", "HTTPS://example.org/watch"),
      refusedLink("linkOfAnotherScheme", "ftp://example.org/watch"),
      refusedLink("linkOfASchemeThatBeginsWithHttps", "httpsx://example.org/watch"),
      refusedLink("linkOfAnExtendedScheme", "https+x://example.org/watch"),
      {"noSessionBecauseTheHelperCouldNotStart",
       [](ImportWorld& world) {
         world.helper.answer = false;
         world.clickAnalyze();
       },
       "ZUNTO Helper could not start. Use the menu bar log for details.", 0},
      {"noSessionBecauseHealthCouldNotBeReached",
       [](ImportWorld& world) {
         world.http.answer("GET", "/health", ScriptedAnswer::transportFailure("Nobody listens."));
         world.clickAnalyze();
       },
       "Nobody listens.", 0},
      {"noSessionBecauseTheTokenWasMissing",
       [](ImportWorld& world) {
         world.http.answer("GET", "/health", {.body = R"({"status":"ok"})"});
         world.clickAnalyze();
       },
       "The local processor did not provide a session token.", 0},
      failedProbe("probeRefusedConnection", ScriptedAnswer::transportFailure("Nobody listens."),
                  "Nobody listens."),
      failedProbe("probeTimedOut", ScriptedAnswer::silence(), "The request timed out."),
      failedProbe("probeErrorEnvelope", {.status = 400, .body = R"({"error":{"message":"Unknown site."}})"},
                  "Unknown site."),
      failedProbe("probeErrorOfAnotherShape", {.status = 500, .body = "oops"},
                  "The local processor returned an error."),
      failedPoll("jobFailedWithMessage",
                 {.body = jobJson("probe-1", "failed", R"("error":{"message":"This video is private."})")},
                 "This video is private."),
      failedPoll("jobFailedWithoutMessage", {.body = jobJson("probe-1", "failed")},
                 "The job did not complete."),
      failedPoll("pollingFailed", ScriptedAnswer::transportFailure("Nobody listens."), "Nobody listens."),
      failedPoll("pollingTimedOut", ScriptedAnswer::silence(), "The request timed out."),
      {"pollingCancelled",
       [](ImportWorld& world) {
         world.offerToken();
         world.controller->present(std::nullopt);
         world.acceptProbe();
         world.keepAnsweringPoll("probe-1", "probing");
         world.settle();
         world.clickAnalyze();
         world.controller->window().userClosed();
         world.settle();
       },
       Cancelled().message(), 1},
  };
}

INSTANTIATE_TEST_SUITE_P(Rows, AnalyzeFailureTable, ValuesIn(failureRows()),
                         [](const TestParamInfo<FailureRow>& row) { return row.param.name; });

TEST(AnalyzeFailures, AnAnswerThatDoesNotDecodeShowsTheDecodersSentence) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited(link);
  world.http.answer("POST", "/probe", {.body = R"({"jobId":"probe-1"})"});
  world.clickAnalyze();
  EXPECT_THAT(world.status(), ::testing::HasSubstr("job.status is missing"));
  EXPECT_EQ(world.beeper.beeps(), 1);
  EXPECT_TRUE(world.inputsAreEnabled());
}

// ---- The cases that are easy to get wrong.

TEST(AnalyzeFlowEdgeCases, AnHttpLinkIsRefusedWithABeepAndAnHttpsLinkToAnySiteIsSent) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited("http://www.youtube.com/watch?v=1");
  world.clickAnalyze();
  EXPECT_EQ(world.status(), notHttps);
  EXPECT_EQ(world.beeper.beeps(), 1);
  EXPECT_EQ(world.requestCount("POST", "/probe"), 0U);
  EXPECT_EQ(probedBody("https://another-site.example/clip"), probeBody("https://another-site.example/clip"));
}

TEST(AnalyzeFlowEdgeCases, ALinkWithSurroundingBlanksIsSentTrimmed) {
  EXPECT_EQ(probedBody("  " + link + "  "), probeBody(link));
}

TEST(AnalyzeFlowEdgeCases, AnHttpsLinkNeedsNoDotInItsHost) {
  EXPECT_EQ(probedBody("https://localhost/clip"), probeBody("https://localhost/clip"));
}

TEST(AnalyzeFlowEdgeCases, WithTheCheckBoxOffThePermissionMessageWinsOverAnInvalidLink) {
  ImportWorld world;
  world.form().permissionCheck.userToggled();
  world.form().urlField.userEdited("no link");
  world.clickAnalyze();
  EXPECT_EQ(world.status(), confirmFirst);
  EXPECT_EQ(world.beeper.beeps(), 1);
  EXPECT_THAT(world.http.requests(), IsEmpty());
  EXPECT_EQ(world.helper.calls(), 0);
}

TEST(AnalyzeFlowEdgeCases, AJobWithoutFormatsShowsOneItemAndKeepsDownloadDisabledForVideo) {
  ImportWorld world;
  world.analyzed(R"("title":"t")");
  EXPECT_THAT(world.form().qualityPopup.titles(), ElementsAre("No video quality available"));
  EXPECT_FALSE(world.form().startButton.isEnabled());
}

TEST(AnalyzeFlowEdgeCases, TheRecommendedTrackIsSelected) {
  ImportWorld world;
  world.analyzed(R"("subtitles":[{"id":"a"},{"id":"b"},{"id":"c"}],"recommendedSubtitleId":"c")");
  EXPECT_EQ(world.form().subtitlePopup.selectedIndex(), 2U);
}

TEST(AnalyzeFlowEdgeCases, AnHourIsShownAsSixtyMinutes) {
  ImportWorld world;
  world.analyzed(R"("duration":3600)");
  EXPECT_EQ(world.form().detailLabel.text(), "Duration: 60:00");
}

// ---- The flow.

TEST(AnalyzeFlow, StartsOnALaterTurn) {
  ImportWorld world;
  world.form().analyzeButton.userClicked();
  EXPECT_EQ(world.status(), "ZUNTO Helper is starting…");
  EXPECT_TRUE(world.fields().pollTask);
  world.settle();
  EXPECT_EQ(world.status(), notHttps);
}

TEST(AnalyzeFlow, ObtainsASessionFirstWhenThereIsNone) {
  ImportWorld world;
  world.offerToken();
  world.form().urlField.userEdited(link);
  world.acceptProbe();
  world.answerPoll("probe-1", "completed");
  world.clickAnalyze();
  EXPECT_EQ(world.helper.calls(), 1);
  EXPECT_EQ(world.http.requests("POST", "/probe").at(0).header("Authorization"), "Bearer token-1");
  EXPECT_EQ(world.status(), complete);
}

TEST(AnalyzeFlow, WithoutASessionLeavesAnEarlierAnalysisAlone) {
  ImportWorld world;
  world.offerToken("");
  world.form().urlField.userEdited(link);
  world.clickAnalyze();
  EXPECT_EQ(world.form().titleLabel.text(), "Paste a YouTube or Bilibili link to begin.");
  EXPECT_EQ(world.requestCount("POST", "/probe"), 0U);
  EXPECT_TRUE(world.inputsAreEnabled());
}

TEST(AnalyzeFlow, FillsTheFormWithWhatTheLastPollFound) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited(link);
  world.http.answer("POST", "/probe",
                    {.status = 202, .body = jobJson("probe-1", "queued", R"("title":"Not this")")});
  world.answerPoll("probe-1", "probing", R"("title":"Nor this")");
  world.answerPoll("probe-1", "completed", testing::richMedia);
  world.clickAnalyze();
  world.clock.advance(testing::pollPause);
  EXPECT_EQ(world.form().titleLabel.text(), "A film");
  EXPECT_EQ(world.form().detailLabel.text(), "Duration: 62:05");
  EXPECT_THAT(world.form().qualityPopup.titles(), ElementsAre("1080p", "720p"));
  EXPECT_EQ(world.form().qualityPopup.selectedIndex(), 0U);
  EXPECT_THAT(world.form().subtitlePopup.titles(),
              ElementsAre("English — Original · Recommended", "de — Manual", "ja-1 — Manual"));
  EXPECT_EQ(world.form().subtitlePopup.selectedIndex(), 2U);
  EXPECT_EQ(world.form().progress.value(), 100);
  EXPECT_EQ(world.status(), complete);
  EXPECT_EQ(world.fields().analyzedJob->title, "A film");
  EXPECT_EQ(world.fields().analyzedJob->status, "completed");
  EXPECT_FALSE(world.fields().pollTask);
  EXPECT_EQ(world.beeper.beeps(), 0);
}

TEST(AnalyzeFlow, ShowsFixedTextsForWhatIsUnknown) {
  ImportWorld world;
  world.analyzed("");
  EXPECT_EQ(world.form().titleLabel.text(), "Untitled media");
  EXPECT_EQ(world.form().detailLabel.text(), "Duration unavailable");
  EXPECT_THAT(world.form().qualityPopup.titles(), ElementsAre("No video quality available"));
  EXPECT_THAT(world.form().subtitlePopup.titles(), ElementsAre("No subtitle tracks"));
  EXPECT_EQ(world.form().subtitlePopup.selectedIndex(), 0U);
}

TEST(AnalyzeFlow, AnEmptyTitleIsATitle) {
  ImportWorld world;
  world.analyzed(R"("title":"","duration":0)");
  EXPECT_EQ(world.form().titleLabel.text(), "");
  EXPECT_EQ(world.form().detailLabel.text(), "Duration: 0:00");
}

TEST(AnalyzeFlow, KeepsEqualTitlesApartByTheirIndex) {
  ImportWorld world;
  world.analyzed(
      R"("formats":[{"quality":"720p"},{"quality":"720p"},{"quality":"480p"}],)"
      R"("subtitles":[{"id":"a","label":"English"},{"id":"b","label":"English"},{"id":"c","label":"English"}],)"
      R"("recommendedSubtitleId":"b")");
  EXPECT_THAT(world.form().qualityPopup.titles(), ElementsAre("720p", "720p", "480p"));
  EXPECT_EQ(world.form().qualityPopup.selectedIndex(), 0U);
  EXPECT_THAT(world.form().subtitlePopup.titles(),
              ElementsAre("English — Manual", "English — Manual", "English — Manual"));
  EXPECT_EQ(world.form().subtitlePopup.selectedIndex(), 1U);
}

TEST(AnalyzeFlow, SelectsTheFirstOfTracksWithTheRecommendedIdentifier) {
  ImportWorld world;
  world.analyzed(R"("subtitles":[{"id":"a"},{"id":"b"},{"id":"b"}],"recommendedSubtitleId":"b")");
  EXPECT_EQ(world.form().subtitlePopup.selectedIndex(), 1U);
}

TEST(AnalyzeFlow, SelectsTheFirstTrackWhenNoneIsRecommendedExactly) {
  for (const char* recommendation :
       {R"(,"recommendedSubtitleId":"B")", R"(,"recommendedSubtitleId":"")", ""}) {
    ImportWorld world;
    world.analyzed(R"("originalLanguage":"fr","subtitles":[{"id":"a"},{"id":"b","language":"fr"},)"
                   R"({"id":"fr"},{"id":"d","original":true}])" +
                   std::string(recommendation));
    EXPECT_EQ(world.form().subtitlePopup.selectedIndex(), 0U) << recommendation;
  }
}

TEST(AnalyzeFlow, ARecommendationWithoutTracksSelectsTheOneItem) {
  ImportWorld world;
  world.analyzed(R"("subtitles":[],"recommendedSubtitleId":"b")");
  EXPECT_THAT(world.form().subtitlePopup.titles(), ElementsAre("No subtitle tracks"));
  EXPECT_EQ(world.form().subtitlePopup.selectedIndex(), 0U);
}

TEST(AnalyzeFlow, ANewAnalysisSelectsTheFirstItemsAnew) {
  ImportWorld world;
  world.analyzed();
  world.form().qualityPopup.userSelected(1);
  world.acceptProbe();
  world.answerPoll("probe-1", "completed",
                   R"("formats":[{"quality":"a"},{"quality":"b"}],"subtitles":[{"id":"x"}])");
  world.clickAnalyze();
  EXPECT_EQ(world.form().qualityPopup.selectedTitle(), "a");
  EXPECT_EQ(world.form().subtitlePopup.selectedIndex(), 0U);
}

TEST(AnalyzeFlow, LeavesTheVisibilityOfTheOutputPopUpsToTheMode) {
  for (const std::string& media : {testing::richMedia, std::string()}) {
    ImportWorld world;
    world.form().modePopup.userSelected(2);
    world.analyzed(media);
    EXPECT_TRUE(world.form().qualityPopup.isHidden()) << media;
    EXPECT_FALSE(world.form().subtitlePopup.isHidden()) << media;
    EXPECT_FALSE(world.form().subtitleFormatPopup.isHidden()) << media;
    EXPECT_EQ(world.form().startButton.isEnabled(), !media.empty()) << media;
    world.form().modePopup.userSelected(0);
    world.acceptProbe();
    world.answerPoll("probe-1", "completed", media);
    world.clickAnalyze();
    EXPECT_FALSE(world.form().qualityPopup.isHidden()) << media;
    EXPECT_TRUE(world.form().subtitlePopup.isHidden()) << media;
  }
}

TEST(AnalyzeFlow, NeitherJudgesNorShowsTheAnswerOfTheProbeItself) {
  for (const char* word : {"completed", "failed", "queued"}) {
    ImportWorld world;
    world.beReady();
    world.form().urlField.userEdited(link);
    world.http.answer(
        "POST", "/probe",
        {.body = jobJson("probe-1", word,
                         R"("progress":33,"stage":"Not shown","error":{"message":"Nor this"})")});
    world.http.answer("GET", "/jobs/probe-1",
                      {.body = jobJson("probe-1-own", "probing"), .delay = std::chrono::seconds(1)});
    world.clickAnalyze();
    EXPECT_EQ(world.requestCount("GET", "/jobs/probe-1"), 1U) << word;
    EXPECT_EQ(world.status(), analyzing) << word;
    EXPECT_EQ(world.form().progress.value(), 0) << word;
    EXPECT_EQ(world.beeper.beeps(), 0) << word;
  }
}

TEST(AnalyzeFlow, WithoutAChosenOutputDownloadNeedsAQualityAsForVideo) {
  ImportWorld world;
  world.form().modePopup.setItems({});
  world.analyzed(R"("duration":1)");
  EXPECT_FALSE(world.form().startButton.isEnabled());
}

TEST(AnalyzeFlow, KeepsTheJobOfTheLastPollWithItsOwnIdentifier) {
  ImportWorld world;
  world.analyzed();
  EXPECT_EQ(world.fields().analyzedJob->jobId, testing::ownIdentifier("probe-1"));
}

TEST(AnalyzeFlow, LeavesTheLinkFieldAsTheUserWroteIt) {
  ImportWorld world;
  world.beReady();
  const std::string written = " https://example.org/видео?q=a|b ";
  world.form().urlField.userEdited(written);
  world.acceptProbe();
  world.answerPoll("probe-1", "completed", testing::richMedia);
  world.clickAnalyze();
  EXPECT_EQ(world.status(), complete);
  EXPECT_EQ(world.form().urlField.text(), written);
}

TEST(AnalyzeFlow, TheStatusAfterAFailureIsNoProblemAnyMore) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited("http://example.org/watch");
  world.clickAnalyze();
  EXPECT_TRUE(world.form().statusLabel.isProblem());
  world.form().urlField.userEdited(link);
  world.acceptProbe();
  world.answerPoll("probe-1", "completed", testing::richMedia);
  world.clickAnalyze();
  EXPECT_EQ(world.status(), complete);
  EXPECT_FALSE(world.form().statusLabel.isProblem());
}

TEST(AnalyzeFlow, ACompletedJobThatCarriesAnErrorIsASuccess) {
  ImportWorld world;
  world.analyzed(R"("title":"A film","error":{"message":"A warning, no more."})");
  EXPECT_EQ(world.status(), complete);
  EXPECT_EQ(world.form().titleLabel.text(), "A film");
  EXPECT_EQ(world.beeper.beeps(), 0);
}

TEST(AnalyzeFlow, AFailureLeavesTheBarWhereItStood) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited(link);
  world.acceptProbe();
  world.answerPoll("probe-1", "probing", R"("progress":60)");
  world.http.answer("GET", "/jobs/probe-1", ScriptedAnswer::transportFailure("It is gone."));
  world.clickAnalyze();
  world.clock.advance(testing::pollPause);
  EXPECT_EQ(world.status(), "It is gone.");
  EXPECT_EQ(world.form().progress.value(), 60);
}

/// A download whose window closed between the start's answer and the first poll: no task is left, but the
/// inputs are disabled, Cancel is shown and the job's identifier is kept.
void leaveADownloadBehind(ImportWorld& world) {
  world.analyzed();
  world.acceptJob();
  world.form().startButton.userClicked();
  world.runUntil([&world] { return world.requestCount("POST", "/jobs") == 1; });
  world.controller->window().userClosed();
  world.settle();
  ASSERT_FALSE(world.fields().pollTask);
  ASSERT_EQ(world.fields().activeJobId, "job-1");
  ASSERT_FALSE(world.form().cancelButton.isHidden());
  ASSERT_TRUE(world.inputsAreDisabled());
}

TEST(AnalyzeFlow, ARefusalChangesTheStatusAndNothingElse) {
  for (const bool isPermitted : {true, false}) {
    ImportWorld world;
    leaveADownloadBehind(world);
    world.form().urlField.setText("no link");
    if (!isPermitted) world.form().permissionCheck.userToggled();
    world.controller->analyze();
    world.settle();
    EXPECT_EQ(world.status(), isPermitted ? notHttps : confirmFirst);
    EXPECT_EQ(world.beeper.beeps(), 1);
    EXPECT_TRUE(world.inputsAreDisabled());
    EXPECT_FALSE(world.form().startButton.isEnabled());
    EXPECT_FALSE(world.form().cancelButton.isHidden());
    EXPECT_EQ(world.form().progress.value(), 100);
    EXPECT_EQ(world.fields().activeJobId, "job-1");
  }
}

TEST(AnalyzeFlow, TheEndOfItsJobClearsAnActiveJobThatWasLeftBehind) {
  ImportWorld world;
  leaveADownloadBehind(world);
  world.acceptProbe();
  world.answerPoll("probe-1", "completed", testing::richMedia);
  world.controller->analyze();
  world.settle();
  EXPECT_EQ(world.status(), complete);
  EXPECT_FALSE(world.fields().activeJobId);
  EXPECT_TRUE(world.form().cancelButton.isHidden());
}

TEST(AnalyzeFlow, OneThatEndsWithoutASessionLeavesANewerTaskAlone) {
  ImportWorld world;
  world.offerToken();
  world.helper.delay = std::chrono::seconds(5);
  world.form().urlField.userEdited(link);
  world.clickAnalyze();
  world.controller->analyze();
  world.settle();  // the older one has ended: cancelled, without a token
  EXPECT_EQ(world.helper.calls(), 2);
  EXPECT_TRUE(world.fields().pollTask);
  EXPECT_EQ(world.requestCount("POST", "/probe"), 0U);
}

TEST(AnalyzeFlow, LeavesTitleDetailAndPopUpsAsTheyAreUntilTheNewAnalysisIsApplied) {
  ImportWorld world;
  world.analyzed();
  world.acceptProbe();
  world.keepAnsweringPoll("probe-1", "probing", R"("progress":40,"stage":"Reading the page…")");
  world.clickAnalyze();
  EXPECT_FALSE(world.fields().analyzedJob);
  EXPECT_FALSE(world.form().startButton.isEnabled());
  EXPECT_EQ(world.form().titleLabel.text(), "A film");
  EXPECT_EQ(world.form().detailLabel.text(), "Duration: 62:05");
  EXPECT_EQ(world.form().qualityPopup.titles().size(), 2U);
  EXPECT_EQ(world.form().subtitlePopup.titles().size(), 3U);
  EXPECT_EQ(world.form().subtitlePopup.selectedIndex(), 2U);
  EXPECT_EQ(world.form().progress.value(), 40);
  EXPECT_EQ(world.status(), "Reading the page…");
}

TEST(AnalyzeFlow, AFailedProbeLeavesNoAnalysedJobButTheOldTexts) {
  ImportWorld world;
  world.analyzed();
  world.http.answer("POST", "/probe", ScriptedAnswer::transportFailure("It is gone."));
  world.clickAnalyze();
  EXPECT_FALSE(world.fields().analyzedJob);
  EXPECT_FALSE(world.form().startButton.isEnabled());
  EXPECT_EQ(world.form().progress.value(), 0);
  EXPECT_EQ(world.form().titleLabel.text(), "A film");
}

TEST(AnalyzeFlow, ARefusedLinkLeavesAnEarlierAnalysisAlone) {
  ImportWorld world;
  world.analyzed();
  world.form().urlField.userEdited("no link");
  world.clickAnalyze();
  EXPECT_TRUE(world.fields().analyzedJob);
  EXPECT_TRUE(world.form().startButton.isEnabled());
  EXPECT_EQ(world.form().progress.value(), 100);
}

TEST(AnalyzeFlow, ClearsTheSavedFileAndHidesItsButton) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel();
  world.http.answer("GET", "/jobs/job-1-own/result", {.body = "bytes"});
  world.panels.choose("/home/user/Videos/film.mp4");
  world.settle();
  ASSERT_TRUE(world.fields().savedURL);
  ASSERT_FALSE(world.form().revealButton.isHidden());
  world.http.answer("POST", "/probe", ScriptedAnswer::silence());
  world.clickAnalyze();
  EXPECT_FALSE(world.fields().savedURL);
  EXPECT_TRUE(world.form().revealButton.isHidden());
  EXPECT_EQ(world.form().progress.value(), 0);
}

TEST(AnalyzeFlow, NeverSetsTheActiveJob) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited(link);
  world.acceptProbe();
  world.keepAnsweringPoll("probe-1", "probing");
  world.clickAnalyze();
  EXPECT_FALSE(world.fields().activeJobId);
  EXPECT_TRUE(world.fields().pollTask);
}

TEST(AnalyzeFlow, SendsALinkAsAnAddressBarGivesItPercentEncoded) {
  EXPECT_EQ(probedBody("https://example.org/видео?q=ü|1"),
            probeBody("https://example.org/%D0%B2%D0%B8%D0%B4%D0%B5%D0%BE?q=%C3%BC%7C1"));
}

TEST(AnalyzeFlow, SendsALinkOfAHundredKilobytes) {
  const std::string longLink = link + std::string(100000, 'x');
  EXPECT_EQ(probedBody(longLink), probeBody(longLink));
}

TEST(AnalyzeFlow, ACancelledPollThatNoticesAtTheTopOfItsLoopReturnsWithoutTouchingTheForm) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited(link);
  world.acceptProbe();
  world.form().analyzeButton.userClicked();
  world.runUntil([&world] { return world.requestCount("POST", "/probe") == 1; });
  world.controller->window().userClosed();  // the answer is under way already, and wins
  world.settle();
  EXPECT_EQ(world.requestCount("GET", "/jobs/probe-1"), 0U);
  EXPECT_EQ(world.status(), analyzing);
  EXPECT_EQ(world.beeper.beeps(), 0);
  EXPECT_TRUE(world.inputsAreDisabled());
  EXPECT_FALSE(world.fields().pollTask);
}

TEST(AnalyzeFlow, ACancellationDuringItsReadinessStepShowsTheStepsText) {
  ImportWorld world;
  world.http.answer("GET", "/health", ScriptedAnswer::silence());
  world.form().urlField.userEdited(link);
  world.controller->window().show();
  world.clickAnalyze();
  world.controller->window().userClosed();
  world.settle();
  EXPECT_EQ(world.status(), Cancelled().message());
  EXPECT_EQ(world.beeper.beeps(), 0);
  EXPECT_TRUE(world.inputsAreEnabled());
}

TEST(AnalyzeFlow, EndsAProbeUnderWayWhenTheWindowCloses) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited(link);
  world.http.answer("POST", "/probe", ScriptedAnswer::silence());
  world.clickAnalyze();
  world.controller->window().userClosed();
  world.settle();
  EXPECT_EQ(world.http.requests("POST", "/probe").at(0).fate, RecordedRequest::Fate::cancelled);
  EXPECT_EQ(world.status(), Cancelled().message());
  EXPECT_EQ(world.beeper.beeps(), 1);
}

TEST(AnalyzeDeathTest, ShowingADurationThatIsNoNumberOfSecondsEndsTheProgram) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited(link);
  world.acceptProbe();
  world.answerPoll("probe-1", "completed", R"("duration":1e300)");
  EXPECT_DEATH(world.clickAnalyze(),
               "fatal error: a media duration does not fit a whole number of seconds\n");
}

}  // namespace
}  // namespace zunto
