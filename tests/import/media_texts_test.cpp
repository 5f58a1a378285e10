#include "import/media_texts.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace zunto {
namespace {

using ::testing::TestParamInfo;
using ::testing::TestWithParam;
using ::testing::ValuesIn;

// ---- The suffix of a track by its two flags; a flag is not true when it is false or absent.

struct SuffixRow {
  std::string name;
  std::optional<bool> original;
  std::optional<bool> automatic;
  std::string suffix;

  friend void PrintTo(const SuffixRow& row, std::ostream* out) { *out << row.name; }
};

class SubtitleSuffixTable : public TestWithParam<SuffixRow> {};

TEST_P(SubtitleSuffixTable, FollowsTheTwoFlags) {
  EXPECT_EQ(subtitleLabel({"en", std::nullopt, "English", GetParam().automatic, GetParam().original}),
            "English" + GetParam().suffix);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, SubtitleSuffixTable,
    ValuesIn(std::vector<SuffixRow>{
        {"originalAndAutomatic", true, true, " \u2014 Original \u00B7 Auto-generated"},
        {"originalAndAutomaticFalse", true, false, " \u2014 Original \u00B7 Recommended"},
        {"originalAndAutomaticAbsent", true, std::nullopt, " \u2014 Original \u00B7 Recommended"},
        {"originalFalseAndAutomatic", false, true, " \u2014 Auto-generated"},
        {"originalAbsentAndAutomatic", std::nullopt, true, " \u2014 Auto-generated"},
        {"bothFalse", false, false, " \u2014 Manual"},
        {"bothAbsent", std::nullopt, std::nullopt, " \u2014 Manual"},
        {"originalFalseAndAutomaticAbsent", false, std::nullopt, " \u2014 Manual"},
        {"originalAbsentAndAutomaticFalse", std::nullopt, false, " \u2014 Manual"}}),
    [](const TestParamInfo<SuffixRow>& row) { return row.param.name; });

TEST(SubtitleLabels, ShowTheLabelElseTheLanguageElseTheIdentifier) {
  EXPECT_EQ(subtitleLabel({"id", "language", "label", {}, {}}), "label \u2014 Manual");
  EXPECT_EQ(subtitleLabel({"id", "language", {}, {}, {}}), "language \u2014 Manual");
  EXPECT_EQ(subtitleLabel({"id", {}, {}, {}, {}}), "id \u2014 Manual");
  EXPECT_EQ(subtitleLabel({"id", "language", "", {}, {}}), " \u2014 Manual");
}

TEST(SubtitleLabels, ShowEnglishOriginalAsRecommended) {
  EXPECT_EQ(subtitleLabel({"en", "en", "English", false, true}),
            "English \u2014 Original \u00B7 Recommended");
}

TEST(SubtitleLabels, UseTheDashAndTheDotByTheirCodePoints) {
  EXPECT_EQ(subtitleLabel({"x", {}, {}, true, true}), "x \xE2\x80\x94 Original \xC2\xB7 Auto-generated");
}

// ---- Durations.

struct DurationRow {
  std::string name;
  double seconds;
  std::string text;

  friend void PrintTo(const DurationRow& row, std::ostream* out) { *out << row.name; }
};

class DurationTable : public TestWithParam<DurationRow> {};

TEST_P(DurationTable, ShowsMinutesAndSecondsWithoutHours) {
  EXPECT_EQ(formatDuration(GetParam().seconds), GetParam().text);
}

INSTANTIATE_TEST_SUITE_P(Rows, DurationTable,
                         ValuesIn(std::vector<DurationRow>{
                             {"zero", 0, "0:00"},
                             {"almostAMinute", 59.9, "0:59"},
                             {"aMinute", 60, "1:00"},
                             {"oneAndFive", 65.999, "1:05"},
                             {"anHour", 3600, "60:00"},
                             {"overAnHour", 3725, "62:05"},
                             {"almostNothing", 0.999, "0:00"},
                             {"minusThreeQuarters", -0.75, "0:00"},
                             {"minusFive", -5, "0:-5"},
                             {"minusSeventyFive", -75, "-1:-15"},
                             {"huge", 9223372036854774784.0, "153722867280912913:04"},
                             {"lowest", -9223372036854775808.0, "-153722867280912930:-8"}}),
                         [](const TestParamInfo<DurationRow>& row) { return row.param.name; });

TEST(DurationDeathTest, ADurationThatIsNoNumberOfSecondsEndsTheProgram) {
  for (const double seconds :
       {1e300, -1e300, 9223372036854775808.0, -9223372036854777856.0, std::numeric_limits<double>::infinity(),
        -std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    EXPECT_DEATH(static_cast<void>(formatDuration(seconds)),
                 "fatal error: a media duration does not fit a whole number of seconds\n")
        << seconds;
  }
}

// ---- Suggested file names.

TEST(SuggestedFileNames, AreTheProcessorsWhenTheyAreHarmless) {
  for (const char* name : {"film.mp4", "Ein Film — 2.mp4", ".hidden", "a", "...", "日本.srt", "C:\\x.mp4"}) {
    EXPECT_EQ(suggestedFileName(name), name);
  }
}

TEST(SuggestedFileNames, AreTheFixedOneWhenNothingIsLeft) {
  EXPECT_EQ(suggestedFileName(std::nullopt), "ZUNTO-download");
  for (const char* name :
       {"", ".", "..", "/", "//", "../..", "a/..", "a/.", "a/../", "\n", "\x01\x7f", ".\x01.", "/\t/"}) {
    EXPECT_EQ(suggestedFileName(name), "ZUNTO-download") << name;
  }
}

TEST(SuggestedFileNames, AreTheLastPathComponent) {
  EXPECT_EQ(suggestedFileName("../../etc/passwd"), "passwd");
  EXPECT_EQ(suggestedFileName("/etc/cron.d/job"), "job");
  EXPECT_EQ(suggestedFileName("folder/film.mp4/"), "film.mp4");
  EXPECT_EQ(suggestedFileName("folder/film.mp4///"), "film.mp4");
}

TEST(SuggestedFileNames, HoldNoControlCharacters) {
  EXPECT_EQ(suggestedFileName(std::string("a\0b\nc\x1b[31m\x7f.mp4", 15)), "abc[31m.mp4");
  EXPECT_EQ(suggestedFileName("a\u0080b\u009Fc\u00A0d.mp4"), "abc\u00A0d.mp4");
  EXPECT_EQ(suggestedFileName("\u0085a.mp4\u0085"), "a.mp4");
  EXPECT_EQ(suggestedFileName("a\xC2"), "a\xC2");
}

TEST(SuggestedFileNames, AreCutToTwoHundredAndFiftyFiveBytesWithTheirExtension) {
  const std::string exact = std::string(251, 'x') + ".mp4";
  EXPECT_EQ(suggestedFileName(exact), exact);
  EXPECT_EQ(suggestedFileName(std::string(252, 'x') + ".mp4"), exact);
  EXPECT_EQ(suggestedFileName(std::string(100000, 'x') + ".mp4"), exact);
}

TEST(SuggestedFileNames, AreCutBetweenCharacters) {
  std::string name;
  for (int i = 0; i < 100; ++i) name += "日";  // three bytes each
  const std::string cut = suggestedFileName(name + ".mp4");
  EXPECT_EQ(cut,
            name.substr(0, std::size_t{3} * 83) + ".mp4");  // 249 and 4: another character would make 256
  std::string faces = "a";
  for (int i = 0; i < 100; ++i) faces += "\U0001F600";
  EXPECT_EQ(suggestedFileName(faces), faces.substr(0, 1 + std::size_t{4} * 63));
}

TEST(SuggestedFileNames, AreTheFixedOneWhenThereIsNoCharacterToCutBehind) {
  EXPECT_EQ(suggestedFileName(std::string(300, '\x80')), "ZUNTO-download");
}

TEST(SuggestedFileNames, KeepAnExtensionOfUpToThirtyTwoBytesWithItsDot) {
  const std::string longest = "." + std::string(31, 'e');
  EXPECT_EQ(suggestedFileName(std::string(300, 'x') + longest), std::string(223, 'x') + longest);
  EXPECT_EQ(suggestedFileName(std::string(300, 'x') + longest + "e"), std::string(255, 'x'));
  EXPECT_EQ(suggestedFileName(std::string(300, 'x') + "."), std::string(254, 'x') + ".");
  EXPECT_EQ(suggestedFileName(std::string(300, 'x') + ".a.mp4"), std::string(251, 'x') + ".mp4");
}

TEST(SuggestedFileNames, AreCutWholeWhenWhatFollowsTheDotIsNoExtension) {
  EXPECT_EQ(suggestedFileName("a." + std::string(300, 'x')), "a." + std::string(253, 'x'));
  EXPECT_EQ(suggestedFileName("." + std::string(300, 'x')), "." + std::string(254, 'x'));
}

}  // namespace
}  // namespace zunto
