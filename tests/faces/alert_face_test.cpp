// The warning alert and its two buttons.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/faces/program.h"

namespace zunto::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using std::chrono_literals::operator""s;

class AlertFace : public FaceProgram {};

TEST_F(AlertFace, NamesTheMissingComponentAndOffersTheLog) {
  files_.removeTree("/app/resources/runtime/bin/ffmpeg");
  face().dialogs().answerAlert("OK");
  launch();

  ASSERT_EQ(face().dialogs().seen().size(), 1U);
  const SeenDialog& alert = face().dialogs().seen().front();
  EXPECT_EQ(alert.kind, SeenDialog::Kind::alert);
  EXPECT_EQ(alert.message, "ZUNTO Helper is incomplete");
  EXPECT_EQ(alert.information,
            "A required bundled component is missing: ffmpeg. Download a fresh copy of the app.");
  EXPECT_THAT(alert.buttons, ElementsAre("OK", "Show Log"));
  EXPECT_THAT(face().desktop().requests(), IsEmpty());
  EXPECT_EQ(statusLine(), "ZUNTO Helper could not start. Use the menu bar log for details.");
  EXPECT_TRUE(control("Analyze").isEnabled);
}

TEST_F(AlertFace, ShowsTheLogOnRequest) {
  files_.removeTree("/app/resources/runtime/bin/node");
  face().dialogs().answerAlert("Show Log");
  launch();

  EXPECT_THAT(face().desktop().requests(),
              ElementsAre("reveal /home/user/Library/Logs/ZUNTO Helper/helper.log"));
}

TEST_F(AlertFace, ReportsAProcessorThatNeverAnswers) {
  face().dialogs().answerAlert("OK");
  launch();
  advance(9s);

  ASSERT_EQ(face().dialogs().seen().size(), 1U);
  EXPECT_EQ(face().dialogs().seen().front().message, "ZUNTO Helper could not start");
  EXPECT_EQ(face().dialogs().seen().front().information,
            "Port 43127 may already be in use, or a bundled component could not run. Open the local log for "
            "details.");
  EXPECT_EQ(menuItem(0).title, "ZUNTO Helper Stopped");
  EXPECT_FALSE(processes_.children().front()->isRunning());
}

TEST_F(AlertFace, ReportsALaunchThatTheSystemRefuses) {
  processes_.refuseLaunches("Permission denied");
  face().dialogs().answerAlert("OK");
  launch();

  ASSERT_EQ(face().dialogs().seen().size(), 1U);
  EXPECT_EQ(face().dialogs().seen().front().message, "ZUNTO Helper could not start");
  EXPECT_THAT(face().dialogs().seen().front().information, ::testing::HasSubstr("Permission denied"));
}

}  // namespace
}  // namespace zunto::testing
