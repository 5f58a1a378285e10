// The form through an analysis.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/faces/program.h"

namespace zunto::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using std::chrono_literals::operator""ms;

constexpr const char* fullJob = R"({"jobId":"p","status":"completed","title":"A Film","duration":3725,
  "formats":[{"quality":"1080p"},{"quality":"720p"}],
  "subtitles":[{"id":"en-1","label":"English","original":true},{"id":"en-2","label":"English","original":true},
               {"id":"de","language":"de","automatic":true}],
  "recommendedSubtitleId":"en-2"})";

class AnalyzeFace : public FaceProgram {
 protected:
  void SetUp() override { launchReady(); }
};

TEST_F(AnalyzeFace, LocksTheInputsWhileItRuns) {
  http_.answerAlways("POST", "/probe", {.body = R"({"jobId":"p","status":"queued"})"});
  http_.answerAlways("GET", "/jobs/p",
                     {.body = R"({"jobId":"p","status":"probing","progress":30,"stage":"Reading formats"})"});
  analyze();

  EXPECT_EQ(statusLine(), "Reading formats");
  EXPECT_EQ(control("Progress").value, 30);
  for (const char* input : {"Media link", "Paste", "Analyze", "Access", "Download…"}) {
    EXPECT_FALSE(control(input).isEnabled) << input;
  }
  for (const char* output : {"Save as", "Quality"}) EXPECT_TRUE(control(output).isEnabled) << output;
  EXPECT_FALSE(isVisible("Cancel"));
}

TEST_F(AnalyzeFace, ShowsABareStatusCapitalised) {
  http_.answerAlways("POST", "/probe", {.body = R"({"jobId":"p","status":"queued"})"});
  http_.answerAlways("GET", "/jobs/p", {.body = R"({"jobId":"p","status":"probing"})"});
  analyze();

  EXPECT_EQ(statusLine(), "Probing");
}

TEST_F(AnalyzeFace, FillsTheFormFromTheFinishedJob) {
  analysisGives(fullJob);
  analyze();

  EXPECT_EQ(statusLine(), "Analysis complete. Choose an output and save it to your Mac.");
  EXPECT_TRUE(isVisible("A Film"));
  EXPECT_TRUE(isVisible("Duration: 62:05"));
  EXPECT_THAT(control("Quality").items, ElementsAre("1080p", "720p"));
  EXPECT_EQ(control("Quality").selection, 0U);
  EXPECT_EQ(control("Progress").value, 100);
  for (const char* input : {"Media link", "Paste", "Analyze", "Access", "Download…"}) {
    EXPECT_TRUE(control(input).isEnabled) << input;
  }
}

TEST_F(AnalyzeFace, KeepsTracksOfTheSameTitleApartAndSelectsTheRecommendedOne) {
  analysisGives(fullJob);
  analyze();
  choose("Save as", 2);

  EXPECT_THAT(control("Subtitle track").items,
              ElementsAre("English — Original · Recommended", "English — Original · Recommended",
                          "de — Auto-generated"));
  EXPECT_EQ(control("Subtitle track").selection, 1U);
  choose("Subtitle track", 0);
  EXPECT_EQ(control("Subtitle track").selection, 0U);
}

TEST_F(AnalyzeFace, ShowsOnePlaceholderEachForMediaWithoutFormatsAndTracks) {
  analysisGives(R"({"jobId":"p","status":"completed"})");
  analyze();

  EXPECT_TRUE(isVisible("Untitled media"));
  EXPECT_TRUE(isVisible("Duration unavailable"));
  EXPECT_THAT(control("Quality").items, ElementsAre("No video quality available"));
  EXPECT_FALSE(control("Download…").isEnabled);
  choose("Save as", 1);
  EXPECT_TRUE(control("Download…").isEnabled);
  choose("Save as", 2);
  EXPECT_THAT(control("Subtitle track").items, ElementsAre("No subtitle tracks"));
  EXPECT_FALSE(control("Download…").isEnabled);
}

TEST_F(AnalyzeFace, CutsALongTitleShortInsteadOfWideningTheWindow) {
  const std::string title(400, 'W');
  analysisGives(R"({"jobId":"p","status":"completed","title":")" + title + R"(","formats":[{"quality":")" +
                title + R"("}]})");
  analyze();

  EXPECT_EQ(look().contentWidth, 680);
  EXPECT_LE(control(title).x + control(title).width, 680 - 26);
  EXPECT_LE(control("Quality").x + control("Quality").width, 680 - 26);
}

TEST_F(AnalyzeFace, UnlocksTheInputsAndBeepsAfterAFailure) {
  http_.answerAlways("POST", "/probe",
                     {.status = 422, .body = R"({"error":{"message":"This site is not supported."}})"});
  analyze();

  EXPECT_EQ(statusLine(), "This site is not supported.");
  EXPECT_EQ(face().desktop().requests(), std::vector<std::string>{"beep"});
  for (const char* input : {"Media link", "Paste", "Analyze", "Access"}) {
    EXPECT_TRUE(control(input).isEnabled) << input;
  }
  EXPECT_FALSE(control("Download…").isEnabled);
}

TEST_F(AnalyzeFace, LeavesTheOutputAsItWasUntilTheNewAnalysisIsApplied) {
  analysisGives(fullJob);
  analyze();
  http_.answerAlways("POST", "/probe", ScriptedAnswer::silence());
  analyze("https://media.example/other");

  EXPECT_EQ(statusLine(), "Analyzing available formats…");
  EXPECT_TRUE(isVisible("A Film"));
  EXPECT_THAT(control("Quality").items, ElementsAre("1080p", "720p"));
  EXPECT_EQ(control("Progress").value, 0);
}

TEST_F(AnalyzeFace, PassesTheChosenAccessOn) {
  http_.answerAlways("POST", "/probe", ScriptedAnswer::silence());
  choose("Access", 2);
  analyze();

  const auto requests = http_.requests("POST", "/probe");
  ASSERT_EQ(requests.size(), 1U);
  EXPECT_THAT(requests.front().body.value_or(""), ::testing::HasSubstr(R"("browserLogin":"safari")"));
}

TEST_F(AnalyzeFace, EndsInTheFailurePathWhenTheWindowIsClosed) {
  http_.answerAlways("POST", "/probe", {.body = R"({"jobId":"p","status":"queued"})"});
  http_.answerAlways("GET", "/jobs/p", {.body = R"({"jobId":"p","status":"probing"})"});
  analyze();
  face().window().close();
  settle();
  chooseInMenu("Open Downloader");

  EXPECT_TRUE(control("Analyze").isEnabled);
  EXPECT_THAT(http_.requests("POST", "/jobs/p/cancel"), IsEmpty());
}

}  // namespace
}  // namespace zunto::testing
