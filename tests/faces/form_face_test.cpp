// The small actions of the form: paste, modes, typing, the check box, the window itself.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/faces/program.h"

namespace zunto::testing {
namespace {

using ::testing::IsEmpty;

class FormFace : public FaceProgram {
 protected:
  static constexpr const char* permission = "I own this media or have permission to download and use it.";

  void SetUp() override { launchReady(); }
};

TEST_F(FormFace, LinesUpThePopUpsBehindTheLabels) {
  EXPECT_EQ(control("Access").x, control("Save as").x);
  EXPECT_LT(control("Access:").x + control("Access:").width, control("Access").x);
  EXPECT_LT(control("Save as:").x + control("Save as:").width, control("Save as").x);
}

TEST_F(FormFace, PastesTheBareLink) {
  face().desktop().setPasteboard("  https://media.example/watch?v=ä\n");
  click("Paste");

  EXPECT_EQ(control("Media link").text, "https://media.example/watch?v=ä");
}

TEST_F(FormFace, KeepsTheLinkWhenThePasteboardHoldsNoText) {
  type("Media link", "https://media.example/kept");
  face().desktop().setPasteboard(std::nullopt);
  click("Paste");

  EXPECT_EQ(control("Media link").text, "https://media.example/kept");
}

TEST_F(FormFace, KeepsItsButtonsInPlaceUnderALongerStatus) {
  const double before = control("Download…").y;
  analysisGives(R"({"jobId":"p","status":"failed","error":{"message":")" + std::string(300, 'w') + R"("}})");
  analyze();

  EXPECT_EQ(control("Download…").y, before);
}

TEST_F(FormFace, TakesALinkThatIsDroppedOnTheWindowInThePlaceOfTheOther) {
  type("Media link", "https://media.example/first");
  face().window().drop("\n  https://media.example/second \nand more");

  EXPECT_EQ(control("Media link").text, "https://media.example/second");
}

TEST_F(FormFace, RefusesADropWithoutATextAndWhileTheLinkIsInUse) {
  face().window().drop(" \n ");
  EXPECT_EQ(control("Media link").text, "");

  http_.answerAlways("POST", "/probe", ScriptedAnswer::silence());
  analyze("https://media.example/first");
  face().window().drop("https://media.example/second");
  EXPECT_EQ(control("Media link").text, "https://media.example/first");
}

TEST_F(FormFace, TakesWhatIsTypedAsItStands) {
  type("Media link", " https://media.example/ \xF0\x9F\x8E\xAC");

  EXPECT_EQ(control("Media link").text, " https://media.example/ \xF0\x9F\x8E\xAC");
}

TEST_F(FormFace, TurnsTheCheckBoxOverAtEachClick) {
  click(permission);
  EXPECT_FALSE(control(permission).isOn);
  click(permission);
  EXPECT_TRUE(control(permission).isOn);
}

TEST_F(FormFace, ShowsTheSubtitlePopUpsForASubtitleOnly) {
  choose("Save as", 2);
  EXPECT_FALSE(isVisible("Quality"));
  EXPECT_TRUE(isVisible("Subtitle track"));
  EXPECT_TRUE(isVisible("Subtitle format"));

  choose("Save as", 1);
  EXPECT_FALSE(isVisible("Quality"));
  EXPECT_FALSE(isVisible("Subtitle track"));
  EXPECT_FALSE(isVisible("Subtitle format"));

  choose("Save as", 0);
  EXPECT_TRUE(isVisible("Quality"));
  EXPECT_FALSE(isVisible("Subtitle track"));
  EXPECT_FALSE(isVisible("Subtitle format"));
}

TEST_F(FormFace, KeepsDownloadDisabledInEveryModeBeforeAnAnalysis) {
  for (const std::size_t mode : {1U, 2U, 0U}) {
    choose("Save as", mode);
    EXPECT_FALSE(control("Download…").isEnabled) << mode;
    EXPECT_EQ(control("Save as").selection, mode);
  }
}

TEST_F(FormFace, DoesNothingOnADisabledButton) {
  click("Download…");

  EXPECT_THAT(http_.requests("POST", "/jobs"), IsEmpty());
  EXPECT_EQ(statusLine(), "Ready. Processing and browser access stay on this Mac.");
}

TEST_F(FormFace, RefusesAnHttpLinkWithABeep) {
  analyze("http://media.example/watch");

  EXPECT_EQ(statusLine(), "Enter a valid HTTPS YouTube or Bilibili link.");
  EXPECT_EQ(face().desktop().requests(), std::vector<std::string>{"beep"});
  EXPECT_TRUE(control("Analyze").isEnabled);
}

TEST_F(FormFace, RefusesToAnalyseWithoutPermission) {
  click(permission);
  analyze();

  EXPECT_EQ(statusLine(), "Confirm that you own this media or have permission to use it.");
  EXPECT_EQ(face().desktop().requests(), std::vector<std::string>{"beep"});
  EXPECT_THAT(http_.requests("POST", "/probe"), IsEmpty());
}

TEST_F(FormFace, AnalysesOnReturn) {
  http_.answerAlways("POST", "/probe", ScriptedAnswer::silence());
  type("Media link", "https://media.example/watch");
  face().window().pressReturn();
  settle();

  EXPECT_EQ(http_.requests("POST", "/probe").size(), 1U);
}

TEST_F(FormFace, HidesTheWindowOnCloseAndShowsTheSameFormAgain) {
  type("Media link", "https://media.example/kept");
  choose("Save as", 2);
  face().window().close();
  settle();
  EXPECT_FALSE(look().isVisible);

  chooseInMenu("Open Downloader");
  EXPECT_TRUE(look().isVisible);
  EXPECT_EQ(control("Media link").text, "https://media.example/kept");
  EXPECT_EQ(control("Save as").selection, 2U);
  EXPECT_TRUE(isVisible("Subtitle track"));
}

TEST_F(FormFace, NeverQuitsWhenTheWindowIsClosed) {
  face().window().close();
  settle();

  EXPECT_EQ(application_.terminations(), 0);
}

}  // namespace
}  // namespace zunto::testing
