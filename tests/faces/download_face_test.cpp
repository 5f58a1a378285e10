// The form through a download, its end, and the saving of the file.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/faces/program.h"

namespace zunto::testing {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using std::chrono_literals::operator""ms;

constexpr const char* finishedJob =
    R"({"jobId":"d","status":"completed","progress":100,"result":{"kind":"file","filename":"A Film.mp4"}})";

class DownloadFace : public FaceProgram {
 protected:
  void SetUp() override {
    launchReady();
    analysisGives(R"({"jobId":"p","status":"completed","title":"A Film","formats":[{"quality":"1080p"}],
                      "subtitles":[{"id":"en","label":"English"}]})");
    analyze();
    http_.answerAlways("GET", "/jobs/d/result", {.body = "the film"});
    http_.onMovingFile([this](const TemporaryFileRecord& file, const std::filesystem::path& destination) {
      files_.addFile(destination, file.content);
    });
    std::filesystem::create_directories(folder_);  // the panel shows the real one
    files_.addFolder(folder_);
  }

  void TearDown() override { std::filesystem::remove_all(folder_); }

  void downloadAndSaveTo(const std::filesystem::path& location) {
    face().dialogs().answerSavePanel(location);
    downloadEndsWith(finishedJob);
    click("Download…");
  }

  const std::filesystem::path folder_ = std::filesystem::temp_directory_path() / "zunto face films";
  const std::filesystem::path film_ = folder_ / "Mine.mp4";
};

TEST_F(DownloadFace, ShowsCancelAndTheJobsProgressWhileItRuns) {
  downloadEndsWith(finishedJob, 3);
  click("Download…");

  EXPECT_EQ(statusLine(), "Fetching");
  EXPECT_EQ(control("Progress").value, 40);
  EXPECT_TRUE(control("Cancel").isEnabled);
  for (const char* input : {"Media link", "Paste", "Analyze", "Access", "Download…"}) {
    EXPECT_FALSE(control(input).isEnabled) << input;
  }
}

TEST_F(DownloadFace, AsksThePanelWithTheProcessorsNameAndSavesWhereTheUserSays) {
  downloadAndSaveTo(film_);

  ASSERT_EQ(face().dialogs().seen().size(), 1U);
  EXPECT_EQ(face().dialogs().seen().front().kind, SeenDialog::Kind::savePanel);
  EXPECT_EQ(face().dialogs().seen().front().message, "Save ZUNTO Download");
  EXPECT_EQ(face().dialogs().seen().front().suggestedName, "A Film.mp4");
  EXPECT_EQ(files_.contents(film_), "the film");
  EXPECT_EQ(statusLine(), "Saved to " + film_.string());
  EXPECT_EQ(control("Progress").value, 100);
  EXPECT_TRUE(isVisible("Show Downloaded File"));
  EXPECT_FALSE(isVisible("Cancel"));
  EXPECT_TRUE(control("Download…").isEnabled);
}

TEST_F(DownloadFace, RevealsTheSavedFile) {
  downloadAndSaveTo(film_);
  click("Show Downloaded File");

  EXPECT_THAT(face().desktop().requests(), Contains("reveal " + film_.string()));
}

TEST_F(DownloadFace, FetchesNothingWhenThePanelIsCancelled) {
  face().dialogs().answerSavePanel(std::nullopt);
  downloadEndsWith(finishedJob);
  click("Download…");

  EXPECT_EQ(statusLine(), "Download finished locally. Saving was cancelled.");
  EXPECT_THAT(http_.requests("GET", "/jobs/d/result"), IsEmpty());
  EXPECT_THAT(face().desktop().requests(), IsEmpty());
  EXPECT_FALSE(isVisible("Show Downloaded File"));
  EXPECT_TRUE(control("Download…").isEnabled);
}

TEST_F(DownloadFace, FailsBeforeAnyPanelWhenTheResultIsNoFile) {
  downloadEndsWith(R"({"jobId":"d","status":"completed","result":{"kind":"page"}})");
  click("Download…");

  EXPECT_THAT(face().dialogs().seen(), IsEmpty());
  EXPECT_EQ(statusLine(), "The completed job did not contain a downloadable file.");
  EXPECT_EQ(face().desktop().requests(), std::vector<std::string>{"beep"});
}

TEST_F(DownloadFace, ReportsAFailedJobAndUnlocksTheInputs) {
  downloadEndsWith(R"({"jobId":"d","status":"failed","error":{"message":"The site refused."}})");
  click("Download…");

  EXPECT_EQ(statusLine(), "The site refused.");
  EXPECT_EQ(face().desktop().requests(), std::vector<std::string>{"beep"});
  EXPECT_FALSE(isVisible("Cancel"));
  for (const char* input : {"Media link", "Paste", "Analyze", "Access", "Download…"}) {
    EXPECT_TRUE(control(input).isEnabled) << input;
  }
}

TEST_F(DownloadFace, CancelsTheRunningJob) {
  downloadEndsWith(finishedJob, 1000);
  click("Download…");
  click("Cancel");

  EXPECT_EQ(http_.requests("POST", "/jobs/d/cancel").size(), 1U);
  EXPECT_EQ(statusLine(), "Download cancelled.");
  EXPECT_FALSE(isVisible("Cancel"));
  EXPECT_TRUE(control("Download…").isEnabled);
}

TEST_F(DownloadFace, PollsEverySevenTenthsOfASecond) {
  downloadEndsWith(finishedJob, 1000);
  click("Download…");
  const std::size_t atFirst = http_.requests("GET", "/jobs/d").size();
  advance(2100ms);

  EXPECT_EQ(http_.requests("GET", "/jobs/d").size(), atFirst + 3);
}

TEST_F(DownloadFace, AsksForTheChosenSubtitleTrackAndFormat) {
  choose("Save as", 2);
  choose("Subtitle format", 1);
  downloadEndsWith(finishedJob, 1000);
  click("Download…");

  const auto requests = http_.requests("POST", "/jobs");
  ASSERT_EQ(requests.size(), 1U);
  const std::string body = requests.front().body.value_or("");
  EXPECT_THAT(body, HasSubstr(R"("mode":"subtitle")"));
  EXPECT_THAT(body, HasSubstr(R"("subtitleLanguage":"en")"));
  EXPECT_THAT(body, HasSubstr(R"("subtitleFormat":"srt")"));
}

TEST_F(DownloadFace, StopsPollingWhenTheWindowIsClosed) {
  downloadEndsWith(finishedJob, 1000);
  click("Download…");
  face().window().close();
  settle();
  const std::size_t polls = http_.requests("GET", "/jobs/d").size();
  advance(3000ms);
  chooseInMenu("Open Downloader");

  EXPECT_EQ(http_.requests("GET", "/jobs/d").size(), polls);
  EXPECT_THAT(http_.requests("POST", "/jobs/d/cancel"), IsEmpty());
  EXPECT_FALSE(isVisible("Cancel"));
}

TEST_F(DownloadFace, KeepsTheSavedFilesButtonThroughALaterFailure) {
  downloadAndSaveTo(film_);
  downloadEndsWith(R"({"jobId":"d","status":"failed"})");
  click("Download…");

  EXPECT_EQ(statusLine(), "The job did not complete.");
  EXPECT_TRUE(isVisible("Show Downloaded File"));
}

}  // namespace
}  // namespace zunto::testing
