#include "import/import_form.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

#include "import_world.h"

namespace zunto {
namespace {

using ::testing::ElementsAre;
using testing::ImportWorld;
using ::testing::IsEmpty;
using testing::jobJson;
using testing::link;
using testing::ScriptedAnswer;
using ::testing::TestParamInfo;
using ::testing::TestWithParam;
using ::testing::ValuesIn;

const std::string ready = "Ready. Processing and browser access stay on this Mac.";

/// A row whose proof is a function.
struct CheckedRow {
  std::string name;
  std::function<void(ImportWorld&)> check;

  friend void PrintTo(const CheckedRow& row, std::ostream* out) { *out << row.name; }
};

std::string nameOfRow(const TestParamInfo<CheckedRow>& row) { return row.param.name; }

// ---- The first value of every field.

class FirstValueTable : public TestWithParam<CheckedRow> {};

TEST_P(FirstValueTable, IsAsItShouldBe) {
  ImportWorld world;
  GetParam().check(world);
}

void expectButton(const PushButton& button, const std::string& title, bool enabled, bool hidden,
                  KeyEquivalent key = KeyEquivalent::none) {
  EXPECT_EQ(button.title(), title);
  EXPECT_EQ(button.keyEquivalent(), key);
  EXPECT_EQ(button.isEnabled(), enabled);
  EXPECT_EQ(button.isHidden(), hidden);
}

void expectPopUp(const PopUpButton& popUp, const std::string& selected, bool hidden) {
  EXPECT_EQ(popUp.selectedIndex(), 0U);
  EXPECT_EQ(popUp.selectedTitle(), selected);
  EXPECT_TRUE(popUp.isEnabled());
  EXPECT_EQ(popUp.isHidden(), hidden);
}

void expectLabel(const Label& label, const std::string& text) {
  EXPECT_EQ(label.text(), text);
  EXPECT_FALSE(label.isHidden());
}

std::vector<CheckedRow> firstValueRows() {
  return {
      {"ensureHelper",
       [](ImportWorld& world) {
         EXPECT_TRUE(world.fields().ensureHelper);
         EXPECT_EQ(world.helper.calls(), 0);
       }},
      {"sessionToken", [](ImportWorld& world) { EXPECT_EQ(world.fields().sessionToken, ""); }},
      {"analyzedJob", [](ImportWorld& world) { EXPECT_FALSE(world.fields().analyzedJob); }},
      {"activeJobId", [](ImportWorld& world) { EXPECT_FALSE(world.fields().activeJobId); }},
      {"pollTask", [](ImportWorld& world) { EXPECT_FALSE(world.fields().pollTask); }},
      {"savedURL", [](ImportWorld& world) { EXPECT_FALSE(world.fields().savedURL); }},
      {"urlField",
       [](ImportWorld& world) {
         EXPECT_EQ(world.form().urlField.text(), "");
         EXPECT_TRUE(world.form().urlField.isEnabled());
       }},
      {"permissionCheck",
       [](ImportWorld& world) {
         EXPECT_EQ(world.form().permissionCheck.title(),
                   "I own this media or have permission to download and use it.");
         EXPECT_TRUE(world.form().permissionCheck.isOn());
         EXPECT_TRUE(world.form().permissionCheck.isEnabled());
       }},
      {"browserPopup",
       [](ImportWorld& world) { expectPopUp(world.form().browserPopup, "Anonymous", false); }},
      {"analyzeButton",
       [](ImportWorld& world) {
         expectButton(world.form().analyzeButton, "Analyze", true, false, KeyEquivalent::returnKey);
       }},
      {"pasteButton",
       [](ImportWorld& world) { expectButton(world.form().pasteButton, "Paste", true, false); }},
      {"titleLabel",
       [](ImportWorld& world) {
         expectLabel(world.form().titleLabel, "Paste a YouTube or Bilibili link to begin.");
       }},
      {"detailLabel",
       [](ImportWorld& world) { expectLabel(world.form().detailLabel, "Processing stays on this Mac."); }},
      {"modePopup", [](ImportWorld& world) { expectPopUp(world.form().modePopup, "Video", false); }},
      {"qualityPopup",
       [](ImportWorld& world) {
         expectPopUp(world.form().qualityPopup, "Analyze first", false);
         EXPECT_THAT(world.form().qualityPopup.titles(), ElementsAre("Analyze first"));
       }},
      {"subtitlePopup",
       [](ImportWorld& world) {
         expectPopUp(world.form().subtitlePopup, "No subtitle tracks", true);
         EXPECT_THAT(world.form().subtitlePopup.titles(), ElementsAre("No subtitle tracks"));
       }},
      {"subtitleFormatPopup",
       [](ImportWorld& world) { expectPopUp(world.form().subtitleFormatPopup, "VTT", true); }},
      {"startButton",
       [](ImportWorld& world) {
         expectButton(world.form().startButton, "Download\xE2\x80\xA6", false, false);
       }},
      {"cancelButton",
       [](ImportWorld& world) { expectButton(world.form().cancelButton, "Cancel", true, true); }},
      {"progress",
       [](ImportWorld& world) {
         EXPECT_EQ(world.form().progress.value(), 0);
         EXPECT_EQ(ProgressBar::minimum, 0);
         EXPECT_EQ(ProgressBar::maximum, 100);
       }},
      {"statusLabel",
       [](ImportWorld& world) {
         expectLabel(world.form().statusLabel, "ZUNTO Helper is starting\xE2\x80\xA6");
       }},
      {"revealButton",
       [](ImportWorld& world) {
         expectButton(world.form().revealButton, "Show Downloaded File", true, true);
       }},
  };
}

INSTANTIATE_TEST_SUITE_P(Rows, FirstValueTable, ValuesIn(firstValueRows()), nameOfRow);

// ---- The items of the pop-ups, by index.

struct ItemRow {
  std::string name;
  PopUpButton ImportForm::*popUp;
  std::size_t index;
  std::string title;
  std::size_t count;

  friend void PrintTo(const ItemRow& row, std::ostream* out) { *out << row.name; }
};

class PopUpItemTable : public TestWithParam<ItemRow> {};

TEST_P(PopUpItemTable, StandsAtItsIndex) {
  const ImportForm form;
  const std::vector<std::string>& titles = (form.*GetParam().popUp).titles();
  EXPECT_EQ(titles.size(), GetParam().count);
  EXPECT_EQ(titles.at(GetParam().index), GetParam().title);
}

INSTANTIATE_TEST_SUITE_P(Rows, PopUpItemTable,
                         ValuesIn(std::vector<ItemRow>{
                             {"browser0", &ImportForm::browserPopup, 0, "Anonymous", 3},
                             {"browser1", &ImportForm::browserPopup, 1, "Chrome login", 3},
                             {"browser2", &ImportForm::browserPopup, 2, "Safari login", 3},
                             {"mode0", &ImportForm::modePopup, 0, "Video", 3},
                             {"mode1", &ImportForm::modePopup, 1, "Audio only", 3},
                             {"mode2", &ImportForm::modePopup, 2, "Source subtitle", 3},
                             {"subtitleFormat0", &ImportForm::subtitleFormatPopup, 0, "VTT", 2},
                             {"subtitleFormat1", &ImportForm::subtitleFormatPopup, 1, "SRT", 2}}),
                         [](const TestParamInfo<ItemRow>& row) { return row.param.name; });

// ---- The rows of the window, top to bottom.

template <class T>
bool isControl(const Element& element, const T& control) {
  const auto* reference = std::get_if<std::reference_wrapper<T>>(&element);
  return reference && &reference->get() == &control;
}

const StackItem& rowAt(ImportWorld& world, std::size_t index) {
  return world.controller->window().spec().content.items.at(index);
}

/// The controls of a row that stands side by side; checks its orientation and spacing.
const std::vector<StackItem>& controlsOf(ImportWorld& world, std::size_t index) {
  const auto& stack = *std::get<std::shared_ptr<const Stack>>(rowAt(world, index).element);
  EXPECT_EQ(stack.orientation, Orientation::horizontal);
  EXPECT_EQ(stack.spacing, 10);
  EXPECT_EQ(stack.alignment, StackAlignment::center);
  return stack.items;
}

void expectStyle(const LabelStyle& style, std::optional<double> size, FontWeight weight, TextColor color) {
  EXPECT_EQ(style.font.size, size);
  EXPECT_EQ(style.font.weight, weight);
  EXPECT_EQ(style.color, color);
}

void expectSecondary(const Label& label) {
  expectStyle(label.style(), std::nullopt, FontWeight::regular, TextColor::secondary);
}

class LayoutRowTable : public TestWithParam<CheckedRow> {};

TEST_P(LayoutRowTable, StandsInItsPlace) {
  ImportWorld world;
  ASSERT_EQ(world.controller->window().spec().content.items.size(), 12U);
  GetParam().check(world);
}

std::vector<CheckedRow> layoutRows() {
  return {
      {"row01Heading",
       [](ImportWorld& world) {
         EXPECT_TRUE(isControl(rowAt(world, 0).element, world.form().headingLabel));
         EXPECT_EQ(world.form().headingLabel.text(), "Media Import");
         expectStyle(world.form().headingLabel.style(), 26, FontWeight::bold, TextColor::primary);
       }},
      {"row02Introduction",
       [](ImportWorld& world) {
         const Label& label = world.form().introductionLabel;
         EXPECT_TRUE(isControl(rowAt(world, 1).element, label));
         EXPECT_EQ(label.text(),
                   "Paste a YouTube or Bilibili link. Analyze available formats, then save video, audio, or "
                   "a source "
                   "subtitle directly to your Mac.");
         expectSecondary(label);
         EXPECT_TRUE(label.style().wraps);
         EXPECT_EQ(label.style().maximumLines, 2);
       }},
      {"row03Link",
       [](ImportWorld& world) {
         const auto& row = controlsOf(world, 2);
         ASSERT_EQ(row.size(), 3U);
         EXPECT_TRUE(isControl(row[0].element, world.form().urlField));
         EXPECT_TRUE(isControl(row[1].element, world.form().pasteButton));
         EXPECT_TRUE(isControl(row[2].element, world.form().analyzeButton));
         EXPECT_EQ(world.form().urlField.horizontalHugging(), 250);
         EXPECT_THAT(world.form().urlField.placeholder(),
                     ::testing::MatchesRegex("https://.*\xE2\x80\xA6 or https://.*\xE2\x80\xA6"));
       }},
      {"row04Permission",
       [](ImportWorld& world) {
         EXPECT_TRUE(isControl(rowAt(world, 3).element, world.form().permissionCheck));
       }},
      {"row05Access",
       [](ImportWorld& world) {
         const auto& row = controlsOf(world, 4);
         ASSERT_EQ(row.size(), 3U);
         EXPECT_TRUE(isControl(row[0].element, world.form().accessLabel));
         EXPECT_TRUE(isControl(row[1].element, world.form().browserPopup));
         EXPECT_TRUE(isControl(row[2].element, world.form().cookiesLabel));
         EXPECT_EQ(world.form().accessLabel.text(), "Access:");
         EXPECT_EQ(world.form().cookiesLabel.text(), "Browser cookies never leave this Mac.");
         expectStyle(world.form().accessLabel.style(), std::nullopt, FontWeight::regular, TextColor::primary);
         expectSecondary(world.form().cookiesLabel);
       }},
      {"row06Separator",
       [](ImportWorld& world) { EXPECT_TRUE(std::holds_alternative<Separator>(rowAt(world, 5).element)); }},
      {"row07Title",
       [](ImportWorld& world) {
         EXPECT_TRUE(isControl(rowAt(world, 6).element, world.form().titleLabel));
         expectStyle(world.form().titleLabel.style(), 17, FontWeight::semibold, TextColor::primary);
         EXPECT_TRUE(world.form().titleLabel.style().truncatesTail);
         EXPECT_FALSE(world.form().titleLabel.style().wraps);
       }},
      {"row08Detail",
       [](ImportWorld& world) {
         EXPECT_TRUE(isControl(rowAt(world, 7).element, world.form().detailLabel));
         expectSecondary(world.form().detailLabel);
       }},
      {"row09Output",
       [](ImportWorld& world) {
         const auto& row = controlsOf(world, 8);
         ASSERT_EQ(row.size(), 5U);
         EXPECT_TRUE(isControl(row[0].element, world.form().saveAsLabel));
         EXPECT_TRUE(isControl(row[1].element, world.form().modePopup));
         EXPECT_TRUE(isControl(row[2].element, world.form().qualityPopup));
         EXPECT_TRUE(isControl(row[3].element, world.form().subtitlePopup));
         EXPECT_TRUE(isControl(row[4].element, world.form().subtitleFormatPopup));
         EXPECT_EQ(world.form().saveAsLabel.text(), "Save as:");
         expectStyle(world.form().saveAsLabel.style(), std::nullopt, FontWeight::regular, TextColor::primary);
       }},
      {"row10Progress",
       [](ImportWorld& world) { EXPECT_TRUE(isControl(rowAt(world, 9).element, world.form().progress)); }},
      {"row11Status",
       [](ImportWorld& world) {
         EXPECT_TRUE(isControl(rowAt(world, 10).element, world.form().statusLabel));
         expectSecondary(world.form().statusLabel);
         EXPECT_EQ(world.form().statusLabel.style().maximumLines, 2);
         EXPECT_TRUE(world.form().statusLabel.style().wraps);
         EXPECT_TRUE(world.form().statusLabel.style().announces);
       }},
      {"row12Buttons",
       [](ImportWorld& world) {
         const auto& row = controlsOf(world, 11);
         ASSERT_EQ(row.size(), 3U);
         EXPECT_TRUE(isControl(row[0].element, world.form().startButton));
         EXPECT_TRUE(isControl(row[1].element, world.form().cancelButton));
         EXPECT_TRUE(isControl(row[2].element, world.form().revealButton));
       }},
  };
}

INSTANTIATE_TEST_SUITE_P(Rows, LayoutRowTable, ValuesIn(layoutRows()), nameOfRow);

TEST(ImportWindow, GivesTheStacksWidthToTheLinkRowTheSeparatorAndTheBarAloneAndAColumnToTheRowsLabels) {
  ImportWorld world;
  for (const std::size_t row : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 11U}) {
    const bool isWide = row == 2 || row == 5 || row == 9;
    EXPECT_EQ(rowAt(world, row).width, isWide ? ElementWidth::stack : ElementWidth::natural) << row;
  }
  for (const std::size_t row : {2U, 4U, 8U, 11U}) {
    const std::vector<StackItem>& controls = controlsOf(world, row);
    const bool isLabeled = row == 4 || row == 8;
    EXPECT_EQ(controls.front().width, isLabeled ? ElementWidth::column : ElementWidth::natural) << row;
    for (std::size_t i = 1; i < controls.size(); ++i) {
      EXPECT_EQ(controls[i].width, ElementWidth::natural) << row;
    }
  }
}

TEST(ImportWindow, HasItsTitleSizesAndMargins) {
  ImportWorld world;
  const WindowSpec& spec = world.controller->window().spec();
  EXPECT_EQ(spec.title, "ZUNTO Media Import");
  EXPECT_EQ(spec.contentSize.width, 680);
  EXPECT_EQ(spec.contentSize.height, 520);
  EXPECT_EQ(spec.minimumSize.width, 600);
  EXPECT_EQ(spec.minimumSize.height, 470);
  EXPECT_EQ(spec.insets.leading, 28);
  EXPECT_EQ(spec.insets.trailing, 28);
  EXPECT_EQ(spec.insets.top, 26);
  EXPECT_EQ(spec.insets.minimumBottom, 24);
  EXPECT_EQ(spec.content.orientation, Orientation::vertical);
  EXPECT_EQ(spec.content.alignment, StackAlignment::leading);
  EXPECT_EQ(spec.content.spacing, 16);
}

TEST(ImportWindow, IsBuiltOnceAndNotShownUntilPresented) {
  ImportWorld world;
  EXPECT_EQ(world.windowSystem.viewsMade(), 1U);
  EXPECT_THAT(world.windowSystem.windows(), ElementsAre(&world.controller->window()));
  EXPECT_FALSE(world.controller->window().isVisible());
  world.settle();
  EXPECT_THAT(world.http.requests(), IsEmpty());
}

TEST(ImportWindow, NamesTheControlsThatHaveNoTextOfTheirOwn) {
  const ImportForm form;
  EXPECT_EQ(form.urlField.accessibleName(), "Media link");
  EXPECT_EQ(form.browserPopup.accessibleName(), "Access");
  EXPECT_EQ(form.modePopup.accessibleName(), "Save as");
  EXPECT_EQ(form.qualityPopup.accessibleName(), "Quality");
  EXPECT_EQ(form.subtitlePopup.accessibleName(), "Subtitle track");
  EXPECT_EQ(form.subtitleFormatPopup.accessibleName(), "Subtitle format");
  EXPECT_EQ(form.progress.accessibleName(), "Progress");
}

// ---- What each situation makes of the controls.

class ControlStateTable : public TestWithParam<CheckedRow> {};

TEST_P(ControlStateTable, SetsTheControlsAsItShould) {
  ImportWorld world;
  GetParam().check(world);
}

std::vector<CheckedRow> controlStateRows() {
  return {
      {"formJustBuilt",
       [](ImportWorld& world) {
         EXPECT_TRUE(world.inputsAreEnabled());
         EXPECT_FALSE(world.form().startButton.isEnabled());
         EXPECT_TRUE(world.form().cancelButton.isHidden());
         EXPECT_TRUE(world.form().permissionCheck.isOn());
         EXPECT_FALSE(world.form().qualityPopup.isHidden());
         EXPECT_TRUE(world.form().subtitlePopup.isHidden());
         EXPECT_TRUE(world.form().subtitleFormatPopup.isHidden());
         EXPECT_TRUE(world.form().revealButton.isHidden());
       }},
      {"readinessStepStarts",
       [](ImportWorld& world) {
         world.analyzed();
         ASSERT_TRUE(world.form().startButton.isEnabled());
         world.helper.delay = std::chrono::seconds(1);
         world.controller->present(std::nullopt);
         world.settle();
         EXPECT_TRUE(world.inputsAreDisabled());
         EXPECT_FALSE(world.form().startButton.isEnabled());
         EXPECT_TRUE(world.form().cancelButton.isHidden());
         EXPECT_EQ(world.status(), "Starting the local processor\xE2\x80\xA6");
         world.clock.advance(std::chrono::seconds(1));
         EXPECT_TRUE(world.inputsAreEnabled());
         EXPECT_TRUE(world.form().startButton.isEnabled());
       }},
      {"readinessStepLeavesCancelShown",
       [](ImportWorld& world) {
         world.analyzed();
         world.downloading();
         world.controller->present(std::nullopt);
         world.settle();
         EXPECT_FALSE(world.form().cancelButton.isHidden());
       }},
      {"analysisStarts",
       [](ImportWorld& world) {
         world.analyzed();
         world.http.answer("POST", "/probe", ScriptedAnswer::silence());
         world.clickAnalyze();
         EXPECT_TRUE(world.inputsAreDisabled());
         EXPECT_FALSE(world.form().startButton.isEnabled());
         EXPECT_TRUE(world.form().cancelButton.isHidden());
         EXPECT_EQ(world.status(), "Analyzing available formats\xE2\x80\xA6");
       }},
      {"downloadStarts",
       [](ImportWorld& world) {
         world.analyzed();
         world.http.answer("POST", "/jobs", ScriptedAnswer::silence());
         world.clickDownload();
         EXPECT_TRUE(world.inputsAreDisabled());
         EXPECT_FALSE(world.form().startButton.isEnabled());
         EXPECT_FALSE(world.form().cancelButton.isHidden());
         EXPECT_EQ(world.status(), "Starting local download\xE2\x80\xA6");
       }},
      {"idleWithoutAnalysedJob",
       [](ImportWorld& world) {
         world.beReady();
         EXPECT_TRUE(world.inputsAreEnabled());
         EXPECT_FALSE(world.form().startButton.isEnabled());
         EXPECT_TRUE(world.form().cancelButton.isHidden());
         EXPECT_EQ(world.status(), ready);
       }},
      {"idleWithAnalysedJobFollowsTheJobAloneNotTheMode",
       [](ImportWorld& world) {
         world.analyzed(R"("formats":[])");
         ASSERT_FALSE(world.form().startButton.isEnabled());
         world.controller->present(std::nullopt);
         world.settle();
         EXPECT_TRUE(world.inputsAreEnabled());
         EXPECT_TRUE(world.form().startButton.isEnabled());
         EXPECT_EQ(world.status(), ready);
       }},
      {"failureWithoutAnalysedJob",
       [](ImportWorld& world) {
         world.beReady();
         world.form().urlField.userEdited(link);
         world.http.answer("POST", "/probe", ScriptedAnswer::transportFailure("It is gone."));
         world.clickAnalyze();
         EXPECT_TRUE(world.inputsAreEnabled());
         EXPECT_FALSE(world.form().startButton.isEnabled());
         EXPECT_TRUE(world.form().cancelButton.isHidden());
         EXPECT_FALSE(world.fields().pollTask);
         EXPECT_EQ(world.status(), "It is gone.");
         EXPECT_EQ(world.beeper.beeps(), 1);
       }},
      {"failureWithAnalysedJob",
       [](ImportWorld& world) {
         world.analyzed();
         world.downloading();
         world.http.answer("GET", "/jobs/job-1", ScriptedAnswer::transportFailure("It is gone."));
         world.clock.advance(testing::pollPause);
         EXPECT_TRUE(world.inputsAreEnabled());
         EXPECT_TRUE(world.form().startButton.isEnabled());
         EXPECT_TRUE(world.form().cancelButton.isHidden());
         EXPECT_FALSE(world.fields().pollTask);
         EXPECT_FALSE(world.fields().activeJobId);
         EXPECT_EQ(world.status(), "It is gone.");
         EXPECT_EQ(world.beeper.beeps(), 1);
       }},
      {"analysisApplied",
       [](ImportWorld& world) {
         world.analyzed(R"("formats":[])");
         EXPECT_TRUE(world.inputsAreEnabled());
         EXPECT_FALSE(world.form().startButton.isEnabled());
         EXPECT_TRUE(world.form().cancelButton.isHidden());
         EXPECT_EQ(world.form().progress.value(), 100);
       }},
      {"jobLeftTheRunningStates",
       [](ImportWorld& world) {
         world.analyzed();
         world.atSavePanel();
         EXPECT_TRUE(world.inputsAreDisabled());
         EXPECT_FALSE(world.form().startButton.isEnabled());
         EXPECT_TRUE(world.form().cancelButton.isHidden());
         EXPECT_FALSE(world.fields().activeJobId);
       }},
  };
}

INSTANTIATE_TEST_SUITE_P(Rows, ControlStateTable, ValuesIn(controlStateRows()), nameOfRow);

TEST(ImportForm, NeverDisablesTheCheckBoxAndTheOutputPopUps) {
  ImportWorld world;
  const auto expectEnabled = [&world](const char* when) {
    EXPECT_TRUE(world.form().permissionCheck.isEnabled()) << when;
    EXPECT_TRUE(world.form().modePopup.isEnabled()) << when;
    EXPECT_TRUE(world.form().qualityPopup.isEnabled()) << when;
    EXPECT_TRUE(world.form().subtitlePopup.isEnabled()) << when;
    EXPECT_TRUE(world.form().subtitleFormatPopup.isEnabled()) << when;
  };
  expectEnabled("at first");
  world.analyzed();
  expectEnabled("after an analysis");
  world.downloading();
  expectEnabled("during a download");
  world.clickCancel();
  world.http.answer("POST", "/probe", ScriptedAnswer::silence());
  world.clickAnalyze();
  expectEnabled("during an analysis");
}

// ---- When a change of the mode enables Download.

struct StartRow {
  std::string name;
  std::optional<std::string> analysed;  ///< members of the analysed job; none: no analysis
  std::size_t mode;
  bool enabled;

  friend void PrintTo(const StartRow& row, std::ostream* out) { *out << row.name; }
};

class RefreshStartButtonTable : public TestWithParam<StartRow> {};

TEST_P(RefreshStartButtonTable, EnablesDownloadByJobAndMode) {
  ImportWorld world;
  if (GetParam().analysed) {
    world.analyzed(*GetParam().analysed);
  } else {
    world.beReady();
  }
  world.form().modePopup.userSelected((GetParam().mode + 1) % 3);
  world.form().modePopup.userSelected(GetParam().mode);
  EXPECT_EQ(world.form().startButton.isEnabled(), GetParam().enabled);
}

INSTANTIATE_TEST_SUITE_P(Rows, RefreshStartButtonTable,
                         ValuesIn(std::vector<StartRow>{
                             {"noJobVideo", std::nullopt, 0, false},
                             {"noJobAudio", std::nullopt, 1, false},
                             {"noJobSubtitle", std::nullopt, 2, false},
                             {"videoWithoutFormats", R"("title":"t")", 0, false},
                             {"videoWithEmptyFormats", R"("formats":[])", 0, false},
                             {"videoWithFormats", R"("formats":[{"quality":"q"}])", 0, true},
                             {"audioWithoutAnything", R"("title":"t")", 1, true},
                             {"subtitleWithoutTracks", R"("title":"t","formats":[{"quality":"q"}])", 2,
                              false},
                             {"subtitleWithEmptyTracks", R"("subtitles":[])", 2, false},
                             {"subtitleWithTracks", R"("subtitles":[{"id":"en"}])", 2, true}}),
                         [](const TestParamInfo<StartRow>& row) { return row.param.name; });

// ---- The cases that are easy to get wrong.

TEST(ImportFormEdgeCases, APastedLinkLosesTheBlanksAndLineEndsAroundIt) {
  ImportWorld world;
  world.pasteboard.text = "  https://example.org/watch?v=1\n";
  world.form().pasteButton.userClicked();
  EXPECT_EQ(world.form().urlField.text(), link);
}

TEST(ImportFormEdgeCases, AudioOnlyNeedsAnAnalysisAndNothingElse) {
  ImportWorld world;
  world.beReady();
  world.form().modePopup.userSelected(1);
  EXPECT_FALSE(world.form().startButton.isEnabled());
  world.form().urlField.userEdited(link);
  world.acceptProbe();
  world.answerPoll("probe-1", "completed");
  world.clickAnalyze();
  EXPECT_TRUE(world.form().startButton.isEnabled());
}

TEST(ImportFormEdgeCases, AudioOnlyShowsNoneOfTheOtherOutputPopUps) {
  ImportWorld world;
  for (const std::size_t before : {0U, 2U}) {
    world.form().modePopup.userSelected(before);
    world.form().modePopup.userSelected(1);
    EXPECT_TRUE(world.form().qualityPopup.isHidden()) << before;
    EXPECT_TRUE(world.form().subtitlePopup.isHidden()) << before;
    EXPECT_TRUE(world.form().subtitleFormatPopup.isHidden()) << before;
  }
}

TEST(ImportFormEdgeCases, SourceSubtitleShowsItsPopUpsAndVideoHidesThemAgain) {
  ImportWorld world;
  world.form().modePopup.userSelected(2);
  EXPECT_TRUE(world.form().qualityPopup.isHidden());
  EXPECT_FALSE(world.form().subtitlePopup.isHidden());
  EXPECT_FALSE(world.form().subtitleFormatPopup.isHidden());
  world.form().modePopup.userSelected(0);
  EXPECT_FALSE(world.form().qualityPopup.isHidden());
  EXPECT_TRUE(world.form().subtitlePopup.isHidden());
  EXPECT_TRUE(world.form().subtitleFormatPopup.isHidden());
}

TEST(ImportFormEdgeCases,
     ClosingDuringADownloadEndsThePollingThroughTheFailurePathAndTellsTheProcessorNothing) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  const std::size_t sent = world.http.requests().size();
  world.controller->window().userClosed();
  EXPECT_TRUE(world.fields().pollTask);  // only cancelled: its own end clears it
  EXPECT_EQ(world.fields().activeJobId, "job-1");
  world.clock.advance(std::chrono::minutes(5));
  EXPECT_EQ(world.http.requests().size(), sent);
  EXPECT_TRUE(world.form().cancelButton.isHidden());
  EXPECT_EQ(world.status(), Cancelled().message());
  EXPECT_EQ(world.beeper.beeps(), 1);
  EXPECT_FALSE(world.controller->window().isVisible());

  world.helper.delay = std::chrono::seconds(1);
  world.controller->present(std::nullopt);
  EXPECT_TRUE(world.form().cancelButton.isHidden());
  EXPECT_EQ(world.status(), Cancelled().message());  // until the readiness step has its first turn
}

TEST(ImportFormEdgeCases, PresentingWithALinkDuringAnAnalysisReplacesTheTextAndReenablesTheInputs) {
  ImportWorld world;
  world.beReady();
  world.form().urlField.userEdited(link);
  world.acceptProbe();
  world.keepAnsweringPoll("probe-1", "probing");
  world.clickAnalyze();
  ASSERT_TRUE(world.inputsAreDisabled());
  world.controller->present(Url::parse("https://example.org/other").value());
  EXPECT_EQ(world.form().urlField.text(), "https://example.org/other");
  world.settle();
  EXPECT_TRUE(world.inputsAreEnabled());
  EXPECT_EQ(world.status(), ready);
  EXPECT_EQ(world.requestCount("POST", "/probe"), 1U);  // not restarted
  const std::size_t polls = world.requestCount("GET", "/jobs/probe-1");
  world.clock.advance(testing::pollPause);
  EXPECT_EQ(world.requestCount("GET", "/jobs/probe-1"), polls + 1);  // not stopped
}

// The readiness step's cases that need the window.

TEST(ReadinessEdgeCases, PresentingAgainSendsANewHealthRequestAndReplacesTheToken) {
  ImportWorld world;
  world.beReady();
  world.offerToken("token-2");
  world.controller->present(std::nullopt);
  world.settle();
  EXPECT_EQ(world.requestCount("GET", "/health"), 2U);
  EXPECT_EQ(world.fields().sessionToken, "token-2");
}

TEST(ReadinessEdgeCases, AnalyzeWithATokenAsksNeitherForTheHelperNorForHealth) {
  ImportWorld world;
  world.analyzed();
  EXPECT_EQ(world.helper.calls(), 1);
  EXPECT_EQ(world.requestCount("GET", "/health"), 1U);
}

// ---- Presenting, pasting, closing.

TEST(Presenting, ShowsCentresAndActivatesAtOnceAndStartsTheReadinessStepOnALaterTurn) {
  ImportWorld world;
  world.offerToken();
  world.controller->present(std::nullopt);
  EXPECT_TRUE(world.controller->window().isVisible());
  EXPECT_EQ(world.controller->window().showRequests(), 1U);
  EXPECT_EQ(world.controller->window().centerRequests(), 1U);
  EXPECT_EQ(world.application.activations(), 1);
  EXPECT_EQ(world.status(), "ZUNTO Helper is starting…");
  EXPECT_EQ(world.helper.calls(), 0);
  world.settle();
  EXPECT_EQ(world.helper.calls(), 1);
  EXPECT_EQ(world.status(), ready);
}

TEST(Presenting, ShowsFirstThenCentresThenActivatesWithTheLinkInPlaceAndEachTimeAnew) {
  ImportWorld world;
  std::vector<std::string> journal;
  Window& window = world.controller->window();
  const auto note = [&](const char* when) {
    journal.push_back(when + std::to_string(window.showRequests()) + std::to_string(window.centerRequests()) +
                      " " + world.form().urlField.text());
  };
  const auto subscription = window.observe([&] { note("window "); });
  world.application.onActivate([&] { note("activate "); });
  world.controller->present(Url::parse("https://example.org/1").value());
  world.controller->present(Url::parse("https://example.org/2").value());
  EXPECT_THAT(journal, ElementsAre("window 10 https://example.org/1", "window 11 https://example.org/1",
                                   "activate 11 https://example.org/1", "window 21 https://example.org/2",
                                   "window 22 https://example.org/2", "activate 22 https://example.org/2"));
}

TEST(Presenting, WithoutALinkLeavesTheTextAlone) {
  ImportWorld world;
  world.form().urlField.userEdited("half a li");
  world.controller->present(std::nullopt);
  EXPECT_EQ(world.form().urlField.text(), "half a li");
}

TEST(Presenting, NeverStartsAnAnalysis) {
  ImportWorld world;
  world.offerToken();
  world.controller->present(Url::parse(link).value());
  world.clock.advance(std::chrono::minutes(1));
  EXPECT_EQ(world.form().urlField.text(), link);
  EXPECT_EQ(world.requestCount("POST", "/probe"), 0U);
  EXPECT_FALSE(world.fields().pollTask);
}

TEST(Presenting, AReadinessStepIsNotTheCurrentTaskAndNothingCancelsIt) {
  ImportWorld world;
  world.offerToken();
  world.helper.delay = std::chrono::seconds(2);
  world.controller->present(std::nullopt);
  world.settle();
  EXPECT_FALSE(world.fields().pollTask);
  world.controller->window().userClosed();
  world.clock.advance(std::chrono::seconds(2));
  EXPECT_EQ(world.status(), ready);
  EXPECT_EQ(world.fields().sessionToken, "token-1");
}

TEST(Presenting, TwiceInQuickSuccessionRunsTwoIndependentSteps) {
  ImportWorld world;
  world.http.answer("GET", "/health",
                    {.headers = {{"X-ZUNTO-Session-Token", "slow"}}, .delay = std::chrono::seconds(2)});
  world.http.answer("GET", "/health",
                    {.headers = {{"X-ZUNTO-Session-Token", "quick"}}, .delay = std::chrono::seconds(1)});
  world.controller->present(std::nullopt);
  world.controller->present(std::nullopt);
  world.clock.advance(std::chrono::seconds(1));
  EXPECT_EQ(world.fields().sessionToken, "quick");
  EXPECT_TRUE(world.inputsAreEnabled());  // although the other step still waits
  world.clock.advance(std::chrono::seconds(1));
  EXPECT_EQ(world.fields().sessionToken, "slow");
  EXPECT_EQ(world.helper.calls(), 2);
}

TEST(Presenting, AgainShowsTheFormAsItWas) {
  ImportWorld world;
  world.analyzed();
  world.form().modePopup.userSelected(2);
  world.controller->window().userClosed();
  world.controller->present(std::nullopt);
  world.settle();
  EXPECT_EQ(world.windowSystem.viewsMade(), 1U);
  EXPECT_EQ(world.form().titleLabel.text(), "A film");
  EXPECT_EQ(world.form().modePopup.selectedIndex(), 2U);
  EXPECT_TRUE(world.fields().analyzedJob);
}

TEST(Pasting, WithoutTextChangesNothing) {
  ImportWorld world;
  world.form().urlField.userEdited("kept");
  world.pasteboard.text.reset();
  world.form().pasteButton.userClicked();
  EXPECT_EQ(world.form().urlField.text(), "kept");
}

TEST(Pasting, OfBlanksEmptiesTheField) {
  ImportWorld world;
  world.form().urlField.userEdited("kept");
  world.pasteboard.text = " \n\t";
  world.form().pasteButton.userClicked();
  EXPECT_EQ(world.form().urlField.text(), "");
}

TEST(Pasting, NeitherValidatesNorAnalyses) {
  ImportWorld world;
  world.beReady();
  world.pasteboard.text = "no link at all";
  world.form().pasteButton.userClicked();
  world.settle();
  EXPECT_EQ(world.form().urlField.text(), "no link at all");
  EXPECT_EQ(world.status(), ready);
  EXPECT_EQ(world.beeper.beeps(), 0);
  EXPECT_EQ(world.requestCount("POST", "/probe"), 0U);
}

TEST(Closing, WithoutATaskChangesNothing) {
  ImportWorld world;
  world.analyzed();
  world.controller->window().userClosed();
  world.settle();
  EXPECT_EQ(world.status(), "Analysis complete. Choose an output and save it to your Mac.");
  EXPECT_EQ(world.beeper.beeps(), 0);
  EXPECT_TRUE(world.fields().analyzedJob);
}

// ---- Who may call, and what is left behind.

struct ActionRow {
  std::string name;
  std::function<void(DownloaderWindowController&)> call;

  friend void PrintTo(const ActionRow& row, std::ostream* out) { *out << row.name; }
};

class MainThreadDeathTest : public TestWithParam<ActionRow> {};

TEST_P(MainThreadDeathTest, EndsTheProgramWhenCalledOffTheMainThread) {
  ImportWorld world;
  EXPECT_DEATH(std::thread([&world] { GetParam().call(*world.controller); }).join(),
               "fatal error: " + GetParam().name + " was called off the main thread");
}

INSTANTIATE_TEST_SUITE_P(
    Actions, MainThreadDeathTest,
    ValuesIn(std::vector<ActionRow>{
        {"present", [](DownloaderWindowController& controller) { controller.present(std::nullopt); }},
        {"analyze", [](DownloaderWindowController& controller) { controller.analyze(); }},
        {"pasteLink", [](DownloaderWindowController& controller) { controller.pasteLink(); }},
        {"modeChanged", [](DownloaderWindowController& controller) { controller.modeChanged(); }},
        {"startDownload", [](DownloaderWindowController& controller) { controller.startDownload(); }},
        {"cancelJob", [](DownloaderWindowController& controller) { controller.cancelJob(); }},
        {"revealSavedFile", [](DownloaderWindowController& controller) { controller.revealSavedFile(); }},
        {"windowWillClose", [](DownloaderWindowController& controller) { controller.windowWillClose(); }}}),
    [](const TestParamInfo<ActionRow>& row) { return row.param.name; });

TEST(EndOfTheProgram, AControllerThatIsLetGoLivesUntilItsTasksEnd) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  const std::weak_ptr<DownloaderWindowController> controller = world.controller;
  world.controller.reset();
  EXPECT_FALSE(controller.expired());
  world.http.answer("GET", "/jobs/job-1", {.body = jobJson("job-1", "failed")});
  world.clock.advance(testing::pollPause);
  EXPECT_TRUE(controller.expired());
  EXPECT_THAT(world.windowSystem.windows(), IsEmpty());
  EXPECT_EQ(world.clock.pendingTimers(), 0U);
}

TEST(EndOfTheProgram, AReadinessStepKeepsItsControllerAliveUntilItEnds) {
  ImportWorld world;
  world.offerToken();
  world.helper.delay = std::chrono::seconds(1);
  world.controller->present(std::nullopt);
  world.settle();
  const std::weak_ptr<DownloaderWindowController> controller = world.controller;
  world.controller.reset();
  ASSERT_FALSE(controller.expired());
  world.clock.advance(std::chrono::seconds(1));
  EXPECT_TRUE(controller.expired());
}

TEST(EndOfTheProgram, ACancelRequestKeepsItsControllerAliveUntilItEnds) {
  ImportWorld world;
  world.analyzed();
  world.downloading();
  world.http.answer("POST", "/jobs/job-1/cancel", {.body = "null", .delay = std::chrono::seconds(1)});
  world.clickCancel();
  const std::weak_ptr<DownloaderWindowController> controller = world.controller;
  world.controller.reset();
  ASSERT_FALSE(controller.expired());
  world.clock.advance(std::chrono::seconds(1));
  EXPECT_TRUE(controller.expired());
}

/// Brings the world into a state with waiting tasks.
class TeardownTable : public TestWithParam<CheckedRow> {};

TEST_P(TeardownTable, EndsEveryWaitingTaskAndLeavesNothingBehind) {
  ImportWorld world;
  GetParam().check(world);
  const std::weak_ptr<DownloaderWindowController> controller = world.controller;
  world.controller.reset();
  world.executor.reset();
  EXPECT_TRUE(controller.expired());
  EXPECT_THAT(world.windowSystem.windows(), IsEmpty());
  EXPECT_EQ(world.clock.pendingTimers(), 0U);
  for (const auto& request : world.http.requests())
    EXPECT_NE(request.fate, testing::RecordedRequest::Fate::pending);
  for (const auto& file : world.http.files()) EXPECT_TRUE(file->isRemoved);
  if (world.panels.openPanels() > 0) world.panels.choose("/home/user/Videos/film.mp4");
  world.clock.advance(std::chrono::minutes(2));  // late answers find nobody
  EXPECT_FALSE(world.files.exists("/home/user/Videos/film.mp4"));
}

std::vector<CheckedRow> teardownRows() {
  return {
      {"beforeTheFirstTurn",
       [](ImportWorld& world) {
         world.controller->present(std::nullopt);
         world.form().analyzeButton.userClicked();
       }},
      {"whileTheHelperStarts",
       [](ImportWorld& world) {
         world.helper.delay = std::chrono::seconds(5);
         world.controller->present(std::nullopt);
         world.settle();
       }},
      {"whileHealthIsFetched",
       [](ImportWorld& world) {
         world.http.answer("GET", "/health", ScriptedAnswer::silence());
         world.controller->present(std::nullopt);
         world.settle();
       }},
      {"whileALinkIsProbed",
       [](ImportWorld& world) {
         world.beReady();
         world.form().urlField.userEdited(link);
         world.http.answer("POST", "/probe", ScriptedAnswer::silence());
         world.clickAnalyze();
       }},
      {"betweenTwoPolls",
       [](ImportWorld& world) {
         world.analyzed();
         world.downloading();
       }},
      {"whileACancelIsSent",
       [](ImportWorld& world) {
         world.analyzed();
         world.downloading();
         world.http.answer("POST", "/jobs/job-1/cancel", ScriptedAnswer::silence());
         world.clickCancel();
       }},
      {"atTheSavePanel",
       [](ImportWorld& world) {
         world.analyzed();
         world.atSavePanel();
       }},
      {"whileTheResultIsFetched",
       [](ImportWorld& world) {
         world.analyzed();
         world.atSavePanel();
         world.http.answer("GET", "/jobs/job-1-own/result", ScriptedAnswer::silence());
         world.panels.choose("/home/user/Videos/film.mp4");
         world.settle();
       }},
  };
}

INSTANTIATE_TEST_SUITE_P(Moments, TeardownTable, ValuesIn(teardownRows()), nameOfRow);

}  // namespace
}  // namespace zunto
