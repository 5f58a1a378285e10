// The status menu, item by item.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/faces/program.h"

namespace zunto::testing {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using std::chrono_literals::operator""s;
using std::chrono_literals::operator""ms;

class MenuFace : public FaceProgram {
 protected:
  /// A start whose processor is the helper's own child.
  void launchWithOwnChild() {
    launch();
    processorAnswers();
    advance(150ms);
  }
};

TEST_F(MenuFace, HasItsItemsInOrderWithTheirKeys) {
  processorIsSilent();
  delegate().applicationDidFinishLaunching();

  std::vector<std::string> lines;
  for (const SeenMenuItem& item : face().status().openMenu()) {
    lines.push_back(item.isSeparator
                        ? "---"
                        : item.title + (item.keyEquivalent.empty() ? "" : " " + item.keyEquivalent) +
                              (item.isEnabled ? "" : " (disabled)"));
  }
  EXPECT_THAT(lines, ElementsAre("Starting ZUNTO Helper… (disabled)", "---", "Open Video Import o",
                                 "Open Downloader d", "Stop Helper", "Show Local Log l", "---",
                                 "Quit ZUNTO Helper q"));
}

TEST_F(MenuFace, OpensTheWebPage) {
  launchReady();
  chooseInMenu("Open Video Import");

  EXPECT_THAT(face().desktop().requests(), ElementsAre("open https://www.zunto.example/tools/video-import/"));
}

TEST_F(MenuFace, BringsTheImportWindowForwardAndAsksForTheProcessorAgain) {
  launchReady();
  const std::size_t healthRequests = http_.requests("GET", "/health").size();
  chooseInMenu("Open Downloader");

  EXPECT_TRUE(look().isVisible);
  EXPECT_EQ(application_.activations(), 2);
  EXPECT_EQ(http_.requests("GET", "/health").size(), healthRequests + 1);
}

TEST_F(MenuFace, StopsTheOwnChild) {
  launchWithOwnChild();
  chooseInMenu("Stop Helper");

  ASSERT_EQ(processes_.children().size(), 1U);
  EXPECT_FALSE(processes_.children().front()->isRunning());
  EXPECT_EQ(menuItem(0).title, "ZUNTO Helper Stopped");
  EXPECT_EQ(menuItem(4).title, "Start Helper");
  EXPECT_EQ(face().status().title(), "Z/UNTO");
}

TEST_F(MenuFace, StartsANewChildAfterAStop) {
  launchWithOwnChild();
  chooseInMenu("Stop Helper");
  processorIsSilent();
  chooseInMenu("Start Helper");
  processorAnswers();
  advance(150ms);

  EXPECT_EQ(processes_.children().size(), 2U);
  EXPECT_EQ(menuItem(0).title, "ZUNTO Helper Ready · 127.0.0.1:43127");
}

TEST_F(MenuFace, DisablesTheToggleWhileAnotherProgramsProcessorAnswers) {
  launchReady();

  EXPECT_EQ(menuItem(4).title, "Helper managed by another process");
  EXPECT_FALSE(menuItem(4).isEnabled);
  EXPECT_EQ(face().status().title(), "Z/UNTO ●");
}

TEST_F(MenuFace, DoesNothingOnItsDisabledLines) {
  launchReady();
  const std::size_t probes = commands_.runs().size();
  chooseInMenu("Helper managed by another process");
  chooseInMenu("ZUNTO Helper Ready · 127.0.0.1:43127");

  EXPECT_EQ(commands_.runs().size(), probes);
  EXPECT_THAT(processes_.children(), IsEmpty());
  EXPECT_THAT(face().desktop().requests(), IsEmpty());
}

TEST_F(MenuFace, ShowsTheLocalLogInTheFileViewer) {
  launchReady();
  chooseInMenu("Show Local Log");

  EXPECT_THAT(face().desktop().requests(),
              Contains("reveal /home/user/Library/Logs/ZUNTO Helper/helper.log"));
}

TEST_F(MenuFace, QuitsAfterStoppingTheChild) {
  launchWithOwnChild();
  chooseInMenu("Quit ZUNTO Helper");

  EXPECT_EQ(application_.terminations(), 1);
  EXPECT_FALSE(processes_.children().front()->isRunning());
}

TEST_F(MenuFace, StaysUsableWithTheWindowClosed) {
  launchReady();
  face().window().close();
  settle();
  chooseInMenu("Open Video Import");

  EXPECT_FALSE(look().isVisible);
  EXPECT_THAT(face().desktop().requests(), ElementsAre("open https://www.zunto.example/tools/video-import/"));
}

}  // namespace
}  // namespace zunto::testing
