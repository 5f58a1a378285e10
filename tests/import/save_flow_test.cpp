// Saving the result: the panel, the fetch, the move and the file that may stand in the way.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "import_world.h"
#include "platform/system_error.h"

namespace zunto {
namespace {

using ::testing::ElementsAre;
using testing::ImportWorld;
using ::testing::IsEmpty;
using testing::RecordedRequest;
using testing::ScriptedAnswer;
using ::testing::TestParamInfo;
using ::testing::TestWithParam;
using ::testing::ValuesIn;

const std::filesystem::path place = "/home/user/Videos/film.mp4";
const std::string resultPath = "/jobs/job-1-own/result";
const std::string savingCancelled = "Download finished locally. Saving was cancelled.";
const std::string couldNotBeRead = "The local result could not be read.";

/// From the open panel to the end of saving at `place`.
void choosePlace(ImportWorld& world, const ScriptedAnswer& answer = {.body = "bytes"}) {
  world.http.answer("GET", resultPath, answer);
  world.panels.choose(place);
  world.settle();
}

/// A whole download that is saved at `place`.
void save(ImportWorld& world) {
  world.analyzed();
  world.atSavePanel();
  choosePlace(world);
  ASSERT_EQ(world.fields().savedURL, place);
}

// ---- Every way in which saving ends.

struct EndRow {
  std::string name;
  std::function<void(ImportWorld&)> reach;  ///< from an applied analysis to the end of the flow
  std::string status;
  int beeps;
  bool saved;

  friend void PrintTo(const EndRow& row, std::ostream* out) { *out << row.name; }
};

class SaveEndTable : public TestWithParam<EndRow> {};

TEST_P(SaveEndTable, TellsTheUserAndGivesTheControlsBack) {
  ImportWorld world;
  world.analyzed();
  GetParam().reach(world);
  EXPECT_EQ(world.status(), GetParam().status);
  EXPECT_EQ(world.beeper.beeps(), GetParam().beeps);
  EXPECT_TRUE(world.inputsAreEnabled());
  EXPECT_TRUE(world.form().startButton.isEnabled());
  EXPECT_TRUE(world.form().cancelButton.isHidden());
  EXPECT_FALSE(world.fields().pollTask);
  EXPECT_EQ(world.fields().savedURL.has_value(), GetParam().saved);
  EXPECT_EQ(world.form().revealButton.isHidden(), !GetParam().saved);
  for (const auto& file : world.http.files()) EXPECT_EQ(file->isRemoved, !GetParam().saved);
}

EndRow withoutFile(const std::string& name, const std::string& members) {
  return {name,
          [members](ImportWorld& world) {
            world.acceptJob();
            world.answerPoll("job-1", "completed", members);
            world.clickDownload();
            EXPECT_THAT(world.panels.panels(), IsEmpty());
          },
          "The completed job did not contain a downloadable file.", 1, false};
}

EndRow fetched(const std::string& name, const ScriptedAnswer& answer, const std::string& status) {
  return {name,
          [answer](ImportWorld& world) {
            world.atSavePanel();
            choosePlace(world, answer);
            world.clock.advance(std::chrono::seconds(60));
          },
          status, 1, false};
}

std::vector<EndRow> endRows() {
  return {
      withoutFile("noResult", R"("title":"t")"),
      withoutFile("kindOtherThanFile", R"("result":{"kind":"folder","filename":"a.mp4"})"),
      withoutFile("kindFileInOtherLetters", R"("result":{"kind":"File"})"),
      withoutFile("otherKindWithAnAddress", R"("result":{"kind":"url","downloadUrl":"/jobs/job-1/result"})"),
      {"panelCancelled",
       [](ImportWorld& world) {
         world.atSavePanel();
         world.panels.cancel();
         world.settle();
         EXPECT_EQ(world.requestCount("GET", resultPath), 0U);
       },
       savingCancelled, 0, false},
      fetched("answerNotHttp", {.status = std::nullopt, .body = "bytes"}, couldNotBeRead),
      fetched("status201", {.status = 201, .body = "bytes"}, couldNotBeRead),
      fetched("status204", {.status = 204}, couldNotBeRead),
      fetched("status206", {.status = 206, .body = "by"}, couldNotBeRead),
      fetched("status404", {.status = 404, .body = R"({"error":{"message":"Not shown."}})"}, couldNotBeRead),
      fetched("transportError", ScriptedAnswer::transportFailure("The connection was reset."),
              "The connection was reset."),
      fetched("transportTimeOut", ScriptedAnswer::silence(), "The request timed out."),
      {"removeError",
       [](ImportWorld& world) {
         world.atSavePanel();
         world.files.addFile(place, "old");
         choosePlace(world, {.body = "bytes", .delay = std::chrono::seconds(5)});
         world.files.refuse(place, "Read-only file system");
         world.clock.advance(std::chrono::seconds(5));
         EXPECT_EQ(world.files.contents(place), "old");
       },
       "\"film.mp4\" could not be removed: Read-only file system.", 1, false},
      {"moveError",
       [](ImportWorld& world) {
         world.http.onMovingFile([](const auto&, const auto&) { throw SystemError("The folder is gone."); });
         world.atSavePanel();
         choosePlace(world);
       },
       "The folder is gone.", 1, false},
      {"temporaryFileError",
       [](ImportWorld& world) {
         world.http.onCreatingFile([](const auto&) { throw SystemError("No space left on device."); });
         world.atSavePanel();
         choosePlace(world);
       },
       "No space left on device.", 1, false},
      {"saved",
       [](ImportWorld& world) {
         world.atSavePanel();
         choosePlace(world);
       },
       "Saved to /home/user/Videos/film.mp4", 0, true},
  };
}

INSTANTIATE_TEST_SUITE_P(Rows, SaveEndTable, ValuesIn(endRows()),
                         [](const TestParamInfo<EndRow>& row) { return row.param.name; });

// ---- The cases that are easy to get wrong.

TEST(SaveFlowEdgeCases, AResultOfAnotherKindFailsBeforeAnyPanelIsShown) {
  ImportWorld world;
  world.analyzed();
  world.acceptJob();
  world.answerPoll("job-1", "completed", R"("result":{"kind":"text","filename":"a.txt"})");
  world.clickDownload();
  EXPECT_THAT(world.panels.panels(), IsEmpty());
  EXPECT_EQ(world.status(), "The completed job did not contain a downloadable file.");
}

TEST(SaveFlowEdgeCases, AResultWithoutFileNameSuggestsTheFixedOne) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel(R"("result":{"kind":"file"})");
  EXPECT_EQ(world.panels.panels().at(0).suggestedName, "ZUNTO-download");
}

TEST(SaveFlowEdgeCases, AnOlderFileAtTheChosenPlaceIsReplaced) {
  ImportWorld world;
  world.analyzed();
  world.files.addFile(place, "old");
  world.atSavePanel();
  choosePlace(world);
  EXPECT_EQ(world.files.contents(place), "bytes");
  EXPECT_EQ(world.status(), "Saved to /home/user/Videos/film.mp4");
}

TEST(SaveFlowEdgeCases, AnAnswerOf204Or206CouldNotBeRead) {
  for (const int status : {204, 206}) {
    ImportWorld world;
    world.analyzed();
    world.atSavePanel();
    choosePlace(world, {.status = status, .body = "half"});
    EXPECT_EQ(world.status(), couldNotBeRead) << status;
    EXPECT_FALSE(world.files.exists(place)) << status;
  }
}

TEST(SaveFlowEdgeCases, CancellingThePanelLeavesTheSavedFileAndItsButtonAndDoesNotBeep) {
  ImportWorld world;
  save(world);
  world.atSavePanel();
  world.panels.cancel();
  world.settle();
  EXPECT_EQ(world.fields().savedURL, place);
  EXPECT_FALSE(world.form().revealButton.isHidden());
  EXPECT_EQ(world.beeper.beeps(), 0);
  EXPECT_EQ(world.status(), savingCancelled);
}

TEST(SaveFlowEdgeCases, ShowDownloadedFileRevealsTheSavedFile) {
  ImportWorld world;
  save(world);
  world.form().revealButton.userClicked();
  EXPECT_THAT(world.workspace.revealedLocations(), ElementsAre(place));
}

// ---- The flow.

TEST(SaveFlow, AsksWithTheSuggestedNameTheTitleAndNewFoldersAllowed) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel();
  const SavePanel& panel = world.panels.panels().at(0);
  EXPECT_EQ(panel.title, "Save ZUNTO Download");
  EXPECT_EQ(panel.suggestedName, "film.mp4");
  EXPECT_TRUE(panel.canCreateFolders);
}

TEST(SaveFlow, NeverLetsASuggestionLeaveTheFolder) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel(R"("result":{"kind":"file","filename":"../../.ssh/\u0000authorized_keys"})");
  EXPECT_EQ(world.panels.panels().at(0).suggestedName, "authorized_keys");
}

TEST(SaveFlow, FetchesTheJobsResultWithoutHeadersAndNeverTheAddressOfTheAnswer) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel(R"("result":{"kind":"file","downloadUrl":"http://127.0.0.1:1/else","filename":"a.mp4"})");
  choosePlace(world);
  const auto fetches = world.http.requests("GET", resultPath);
  ASSERT_EQ(fetches.size(), 1U);
  EXPECT_EQ(fetches[0].url, "http://127.0.0.1:43127/jobs/job-1-own/result");
  EXPECT_THAT(fetches[0].headers, IsEmpty());
}

TEST(SaveFlow, FetchesOnlyAfterAPlaceWasChosen) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel();
  world.clock.advance(std::chrono::hours(1));
  EXPECT_EQ(world.requestCount("GET", resultPath), 0U);
}

TEST(SaveFlow, ShowsTheNameWhileItFetches) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel();
  choosePlace(world, ScriptedAnswer::silence());
  EXPECT_EQ(world.status(), "Saving film.mp4\xE2\x80\xA6");
  EXPECT_TRUE(world.inputsAreDisabled());
}

TEST(SaveFlow, FetchesIntoTheFolderOfTheChosenPlaceAndMovesTheFileThere) {
  ImportWorld world;
  save(world);
  ASSERT_EQ(world.http.files().size(), 1U);
  EXPECT_EQ(world.http.files()[0]->folder, "/home/user/Videos");
  EXPECT_EQ(world.http.files()[0]->destination, place);
  EXPECT_EQ(world.files.contents(place), "bytes");
}

TEST(SaveFlow, FillsTheBarWhenTheFileIsSaved) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel(testing::fileResult + R"(,"progress":97)");
  EXPECT_EQ(world.form().progress.value(), 97);
  choosePlace(world);
  EXPECT_EQ(world.form().progress.value(), 100);
}

TEST(SaveFlow, TakesAnUnusualPlaceAsItIs) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel();
  world.files.addFolder("/mnt/größer …");
  world.http.answer("GET", resultPath, {.body = "bytes"});
  world.panels.choose("/mnt/größer …/ohne Endung");
  world.settle();
  EXPECT_EQ(world.status(), "Saved to /mnt/größer …/ohne Endung");
  EXPECT_EQ(world.files.contents("/mnt/größer …/ohne Endung"), "bytes");
}

TEST(SaveFlow, RemovesTheOlderFileOnlyAfterTheStatusCheck) {
  for (const ScriptedAnswer& answer :
       {ScriptedAnswer{.status = 404}, ScriptedAnswer{.status = std::nullopt}, ScriptedAnswer::cutShort()}) {
    ImportWorld world;
    world.analyzed();
    world.files.addFile(place, "old");
    world.atSavePanel();
    choosePlace(world, answer);
    EXPECT_EQ(world.files.contents(place), "old");
    EXPECT_EQ(world.beeper.beeps(), 1);
  }
}

TEST(SaveFlow, KeepsTheOlderFileWhileTheNewOneIsFetched) {
  ImportWorld world;
  world.analyzed();
  world.files.addFile(place, "old");
  world.atSavePanel();
  choosePlace(world, {.body = "bytes", .delay = std::chrono::seconds(5)});
  EXPECT_EQ(world.files.contents(place), "old");
  world.clock.advance(std::chrono::seconds(5));
  EXPECT_EQ(world.files.contents(place), "bytes");
}

TEST(SaveFlow, NeverRemovesAFolderThatAppearsWhileTheFileIsFetched) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel();
  choosePlace(world, {.body = "bytes", .delay = std::chrono::seconds(5)});
  world.files.addFolder(place);
  world.clock.advance(std::chrono::seconds(5));
  EXPECT_EQ(world.status(), "\"film.mp4\" could not be removed: Is a directory.");
  EXPECT_EQ(world.beeper.beeps(), 1);
  EXPECT_TRUE(world.files.isFolder(place));
  EXPECT_TRUE(world.http.files().at(0)->isRemoved);
}

// ---- What bars the way and is known before the fetch.

struct BarredRow {
  std::string name;
  std::function<void(ImportWorld&)> bar;
  std::filesystem::path place;
  std::string status;

  friend void PrintTo(const BarredRow& row, std::ostream* out) { *out << row.name; }
};

class SaveBarredTable : public TestWithParam<BarredRow> {};

TEST_P(SaveBarredTable, FailsWithoutFetchingAnything) {
  ImportWorld world;
  world.analyzed();
  GetParam().bar(world);
  world.atSavePanel();
  world.panels.choose(GetParam().place);
  world.settle();
  EXPECT_EQ(world.status(), GetParam().status);
  EXPECT_EQ(world.beeper.beeps(), 1);
  EXPECT_TRUE(world.inputsAreEnabled());
  EXPECT_EQ(world.requestCount("GET", resultPath), 0U);
  EXPECT_FALSE(world.fields().savedURL);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, SaveBarredTable,
    ValuesIn(std::vector<BarredRow>{
        {"folder", [](ImportWorld& world) { world.files.addFolder(place); }, place,
         "The file could not be saved as \"film.mp4\": Is a directory."},
        {"linkThatLeadsNowhere", [](ImportWorld& world) { world.files.addLink(place, "nothing"); }, place,
         "The file could not be saved as \"film.mp4\": A link that leads nowhere has that name."},
        {"refusedName", [](ImportWorld&) {}, place.parent_path() / std::string(256, 'x'),
         "The file could not be saved as \"" + std::string(256, 'x') + "\": File name too long."},
        {"folderThatCannotBeWritten",
         [](ImportWorld& world) { world.files.refuse(place.parent_path(), "Permission denied"); }, place,
         "No file could be made in the folder \"Videos\": Permission denied."},
        {"missingFolder", [](ImportWorld& world) { world.files.removeTree(place.parent_path()); }, place,
         "No file could be made in the folder \"Videos\": No such file or directory."},
    }),
    [](const TestParamInfo<BarredRow>& row) { return row.param.name; });

TEST(SaveFlow, AFailureKeepsTheEarlierSavedFileAndItsButton) {
  ImportWorld world;
  save(world);
  world.atSavePanel();
  world.http.answer("GET", resultPath, {.status = 500});
  world.panels.choose("/home/user/Videos/other.mp4");
  world.settle();
  EXPECT_EQ(world.status(), couldNotBeRead);
  EXPECT_EQ(world.fields().savedURL, place);
  EXPECT_FALSE(world.form().revealButton.isHidden());
}

TEST(SaveFlow, TheButtonMayStillRevealTheFileOfAnEarlierJob) {
  ImportWorld world;
  save(world);
  world.acceptJob();
  world.answerPoll("job-1", "failed");
  world.clickDownload();
  world.form().revealButton.userClicked();
  EXPECT_THAT(world.workspace.revealedLocations(), ElementsAre(place));
}

TEST(SaveFlow, RevealingWithoutASavedFileDoesNothing) {
  ImportWorld world;
  world.controller->revealSavedFile();
  EXPECT_THAT(world.workspace.revealedLocations(), IsEmpty());
}

TEST(SaveFlow, AfterASaveDownloadFollowsTheAnalysedJobAloneNotTheMode) {
  ImportWorld world;
  world.analyzed(R"("formats":[{"quality":"q"}])");
  world.atSavePanel();
  world.form().modePopup.userSelected(2);  // no tracks: the mode refuses
  ASSERT_FALSE(world.form().startButton.isEnabled());
  choosePlace(world);
  EXPECT_TRUE(world.form().startButton.isEnabled());
}

// ---- Cancellation.

TEST(SaveCancellation, DoesNotCloseThePanel) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel();
  world.controller->window().userClosed();
  world.settle();
  EXPECT_EQ(world.panels.openPanels(), 1U);
  EXPECT_EQ(world.beeper.beeps(), 0);
  EXPECT_TRUE(world.fields().pollTask);
  choosePlace(world);
  EXPECT_EQ(world.status(), Cancelled().message());
  EXPECT_EQ(world.beeper.beeps(), 1);
  EXPECT_EQ(world.requestCount("GET", resultPath), 0U);
  EXPECT_FALSE(world.files.exists(place));
}

TEST(SaveCancellation, OfTheTaskAndThenOfThePanelIsTheUsersOwn) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel();
  world.controller->window().userClosed();
  world.settle();
  world.panels.cancel();
  world.settle();
  EXPECT_EQ(world.status(), savingCancelled);
  EXPECT_EQ(world.beeper.beeps(), 0);
}

TEST(SaveCancellation, DuringTheFetchEndsItAndRemovesTheTemporaryFile) {
  ImportWorld world;
  world.analyzed();
  world.files.addFile(place, "old");
  world.atSavePanel();
  choosePlace(world, ScriptedAnswer::silence());
  ASSERT_EQ(world.http.files().size(), 1U);
  ASSERT_FALSE(world.http.files()[0]->isRemoved);
  world.controller->window().userClosed();
  world.settle();
  EXPECT_TRUE(world.http.files()[0]->isRemoved);
  EXPECT_EQ(world.http.requests("GET", resultPath).at(0).fate, RecordedRequest::Fate::cancelled);
  EXPECT_EQ(world.status(), Cancelled().message());
  EXPECT_EQ(world.beeper.beeps(), 1);
  EXPECT_EQ(world.files.contents(place), "old");
}

TEST(SaveCancellation, IsBeyondTheReachOfCancelOnceTheJobHasCompleted) {
  ImportWorld world;
  world.analyzed();
  world.atSavePanel();
  world.controller->cancelJob();
  world.settle();
  EXPECT_EQ(world.panels.openPanels(), 1U);
  EXPECT_EQ(world.requestCount("POST", "/jobs/job-1/cancel"), 0U);
}

// ---- Twice, and afterwards.

TEST(SavingAgain, RevealsTheLaterFile) {
  ImportWorld world;
  save(world);
  world.atSavePanel();
  world.http.answer("GET", resultPath, {.body = "other bytes"});
  world.panels.choose("/home/user/Videos/other.mp4");
  world.settle();
  EXPECT_EQ(world.fields().savedURL, "/home/user/Videos/other.mp4");
  world.form().revealButton.userClicked();
  EXPECT_THAT(world.workspace.revealedLocations(), ElementsAre("/home/user/Videos/other.mp4"));
  EXPECT_EQ(world.files.contents(place), "bytes");
}

TEST(SavingAgain, IsPossibleAfterACancelledPanelWhichLeavesTheBarAndIgnoresTheMode) {
  ImportWorld world;
  world.analyzed(R"("formats":[{"quality":"q"}])");
  world.atSavePanel(testing::fileResult + R"(,"progress":97)");
  world.form().modePopup.userSelected(2);  // no tracks: the mode refuses
  ASSERT_FALSE(world.form().startButton.isEnabled());
  world.panels.cancel();
  world.settle();
  EXPECT_EQ(world.form().progress.value(), 97);
  EXPECT_TRUE(world.form().startButton.isEnabled());
}

TEST(Revealing, WorksAsOftenAsItIsAskedForAlsoWhenTheFileIsGone) {
  ImportWorld world;
  save(world);
  world.form().revealButton.userClicked();
  world.files.removeTree(place);
  world.form().revealButton.userClicked();
  EXPECT_THAT(world.workspace.revealedLocations(), ElementsAre(place, place));
  EXPECT_FALSE(world.form().revealButton.isHidden());
  EXPECT_EQ(world.status(), "Saved to /home/user/Videos/film.mp4");
}

}  // namespace
}  // namespace zunto
