// What stands before the user when the program has started.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/faces/program.h"

namespace zunto::testing {
namespace {

using ::testing::ElementsAre;
using std::chrono_literals::operator""s;
using std::chrono_literals::operator""ms;
using Kind = SeenControl::Kind;

class LaunchFace : public FaceProgram {};

TEST_F(LaunchFace, ShowsTheWindowWithEveryRowInOrder) {
  launchReady();

  const SeenWindow window = look();

  EXPECT_TRUE(window.isVisible);
  EXPECT_EQ(window.title, "ZUNTO Media Import");
  std::vector<std::string> known;
  for (const SeenControl& control : window.controls) {
    known.push_back(control.kind == Kind::separator ? "---"
                    : control.name.empty()          ? control.text
                                                    : control.name);
  }
  EXPECT_THAT(
      known, ElementsAre(
                 "Media Import",
                 "Paste a YouTube or Bilibili link. Analyze available formats, then save video, audio, "
                 "or a source subtitle directly to your Mac.",
                 "Media link", "Paste", "Analyze",
                 "I own this media or have permission to download and use it.", "Access:", "Access",
                 "Browser cookies never leave this Mac.", "---", "Paste a YouTube or Bilibili link to begin.",
                 "Processing stays on this Mac.", "Save as:", "Save as", "Quality", "Progress",
                 "Ready. Processing and browser access stay on this Mac.", "Download…"));
}

TEST_F(LaunchFace, ShowsEveryControlInItsFirstState) {
  launchReady();

  EXPECT_EQ(control("Media link").text, "");
  EXPECT_TRUE(control("Media link").isEnabled);
  EXPECT_TRUE(control("Paste").isEnabled);
  EXPECT_TRUE(control("Analyze").isEnabled);
  EXPECT_TRUE(control("I own this media or have permission to download and use it.").isOn);
  EXPECT_THAT(control("Access").items, ElementsAre("Anonymous", "Chrome login", "Safari login"));
  EXPECT_EQ(control("Access").selection, 0U);
  EXPECT_THAT(control("Save as").items, ElementsAre("Video", "Audio only", "Source subtitle"));
  EXPECT_EQ(control("Save as").selection, 0U);
  EXPECT_THAT(control("Quality").items, ElementsAre("Analyze first"));
  EXPECT_EQ(control("Progress").value, 0);
  EXPECT_FALSE(control("Download…").isEnabled);
  EXPECT_FALSE(isVisible("Cancel"));
  EXPECT_FALSE(isVisible("Show Downloaded File"));
  EXPECT_FALSE(isVisible("Subtitle track"));
  EXPECT_FALSE(isVisible("Subtitle format"));
}

TEST_F(LaunchFace, KeepsTheRowsApartAndInsideTheMargins) {
  launchReady();

  const SeenWindow window = look();

  EXPECT_EQ(window.contentWidth, 680);
  EXPECT_EQ(window.contentHeight, 520);
  for (const SeenControl& control : window.controls) {
    EXPECT_GE(control.x, 26) << control.text;  // a native frame may reach a little past its alignment edge
    EXPECT_LE(control.x + control.width, 680 - 26) << control.text;
    EXPECT_GE(control.y, 24) << control.text;
    EXPECT_LE(control.y + control.height, 520 - 22) << control.text;
    EXPECT_GT(control.width, 0) << control.text;
    EXPECT_GT(control.height, 0) << control.text;
  }
  for (std::size_t i = 0; i + 1 < window.controls.size(); ++i) {
    const SeenControl& one = window.controls[i];
    const SeenControl& next = window.controls[i + 1];
    const bool isBeside = next.x >= one.x + one.width;
    const bool isBelow = next.y >= one.y + one.height;
    EXPECT_TRUE(isBeside || isBelow) << one.text << one.name << " and " << next.text << next.name;
  }
}

TEST_F(LaunchFace, GivesTheSpareWidthOfTheLinkRowToTheField) {
  launchReady();

  EXPECT_GT(control("Media link").width, 350);
  EXPECT_LT(control("Analyze").width, 150);
  EXPECT_NEAR(control("Analyze").x + control("Analyze").width, 680 - 28, 8);
  EXPECT_NEAR(control("Progress").width, 624, 8);
}

TEST_F(LaunchFace, SaysThatTheHelperIsStartingUntilItHasReported) {
  processorIsSilent();
  delegate().applicationDidFinishLaunching();
  face().runNativeLoop();

  EXPECT_EQ(statusLine(), "ZUNTO Helper is starting…");
  EXPECT_EQ(menuItem(0).title, "Starting ZUNTO Helper…");
  EXPECT_EQ(face().status().title(), "Z/UNTO");
}

TEST_F(LaunchFace, LocksTheInputsWhileTheProcessorStarts) {
  launch();

  EXPECT_EQ(statusLine(), "Starting the local processor…");
  EXPECT_FALSE(control("Media link").isEnabled);
  EXPECT_FALSE(control("Paste").isEnabled);
  EXPECT_FALSE(control("Analyze").isEnabled);
  EXPECT_FALSE(control("Access").isEnabled);
  EXPECT_FALSE(control("Download…").isEnabled);
  EXPECT_TRUE(control("Save as").isEnabled);
  EXPECT_TRUE(control("Quality").isEnabled);
  EXPECT_TRUE(control("I own this media or have permission to download and use it.").isEnabled);
}

TEST_F(LaunchFace, ReportsReadinessInWindowAndMenuOnceTheLaunchedProcessorAnswers) {
  launch();
  processorAnswers();
  advance(150ms);

  EXPECT_EQ(statusLine(), "Ready. Processing and browser access stay on this Mac.");
  EXPECT_EQ(menuItem(0).title, "ZUNTO Helper Ready · 127.0.0.1:43127");
  EXPECT_EQ(menuItem(4).title, "Stop Helper");
  EXPECT_EQ(face().status().title(), "Z/UNTO ●");
  EXPECT_TRUE(control("Analyze").isEnabled);
}

TEST_F(LaunchFace, CentresTheWindowAndBringsTheProgramForward) {
  launchReady();

  EXPECT_EQ(application_.activations(), 1);
}

TEST_F(LaunchFace, ShowsTheStoppedStateWhenTheProcessorGoesAway) {
  launchReady();
  processorIsSilent();
  advance(5s);

  EXPECT_EQ(menuItem(0).title, "ZUNTO Helper Stopped");
  EXPECT_EQ(menuItem(4).title, "Start Helper");
  EXPECT_TRUE(menuItem(4).isEnabled);
  EXPECT_EQ(face().status().title(), "Z/UNTO");
}

}  // namespace
}  // namespace zunto::testing
