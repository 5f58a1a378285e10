#include "protocol/decoding.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <limits>
#include <optional>
#include <ostream>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace zunto {
namespace {

using ::testing::HasSubstr;
using ::testing::MatchesRegex;
using ::testing::TestParamInfo;
using ::testing::TestWithParam;
using ::testing::ValuesIn;

MediaJob decodeJob(const std::string& json) { return decodeRecord<MediaJob>(json); }

std::string decodingFailure(const std::string& json) {
  try {
    static_cast<void>(decodeJob(json));
  } catch (const DecodingError& failure) {
    return failure.message();
  }
  return "decoded";
}

void expectNoJob(const std::string& json) {
  EXPECT_THROW(static_cast<void>(decodeJob(json)), DecodingError) << json.substr(0, 200);
}

/// A job with all that is required, and `members` behind it.
std::string jobWith(const std::string& members) {
  return R"({"jobId":"a","status":"queued",)" + members + "}";
}

std::string repeated(const std::string& text, std::size_t times) {
  std::string result;
  result.reserve(text.size() * times);
  for (std::size_t i = 0; i < times; ++i) result += text;
  return result;
}

// ---- The keys of each record, row by row.

enum class Kind { string, decimal, boolean, array, object };
enum class Presence { required, optional };

/// One key of one record. `before` and `after` are the document around that key's member; `read` shows what
/// the record holds for the key, "none" when it is empty.
struct KeyRow {
  std::string key;
  Kind kind;
  Presence presence;
  std::string before;
  std::string after;
  std::string value;  ///< valid, as JSON
  std::string shown;  ///< the same as `read` shows it
  std::function<std::string(const std::string& json)> read;

  friend void PrintTo(const KeyRow& row, std::ostream* out) { *out << row.key; }
};

std::string documentWith(const KeyRow& row, const std::string& member) {
  std::string document = row.before + member + row.after;
  // Members stand between commas; one that is left out takes its comma along.
  for (const auto& [wrong, right] : {std::pair{"{,", "{"}, std::pair{",}", "}"}, std::pair{",,", ","}}) {
    for (std::size_t at = document.find(wrong); at != std::string::npos; at = document.find(wrong)) {
      document.replace(at, 2, right);
    }
  }
  return document;
}

std::string documentWithValue(const KeyRow& row, const std::string& value) {
  return documentWith(row, "\"" + row.key + "\":" + value);
}

void expectEmptyOrFailure(const KeyRow& row, const std::string& json) {
  if (row.presence == Presence::required) {
    EXPECT_THROW(static_cast<void>(row.read(json)), DecodingError) << json;
  } else {
    EXPECT_EQ(row.read(json), "none") << json;
  }
}

class KeysTable : public TestWithParam<KeyRow> {
 protected:
  static void takesAValueOfItsType() {
    EXPECT_EQ(GetParam().read(documentWithValue(GetParam(), GetParam().value)), GetParam().shown);
  }
  static void absentIsEmptyOrFails() { expectEmptyOrFailure(GetParam(), documentWith(GetParam(), "")); }
  static void nullIsEmptyOrFails() {
    expectEmptyOrFailure(GetParam(), documentWithValue(GetParam(), "null"));
  }
  static void refusesEveryOtherType() {
    const std::vector<std::pair<Kind, std::string>> values = {{Kind::string, "\"55\""},
                                                              {Kind::string, "\"true\""},
                                                              {Kind::string, "\"\""},
                                                              {Kind::decimal, "55"},
                                                              {Kind::decimal, "0"},
                                                              {Kind::boolean, "true"},
                                                              {Kind::boolean, "false"},
                                                              {Kind::array, "[]"},
                                                              {Kind::array, "[\"text\"]"},
                                                              {Kind::object, "{}"},
                                                              {Kind::object, R"({"message":"m"})"}};
    for (const auto& [kind, value] : values) {
      if (kind == GetParam().kind) continue;
      const std::string json = documentWithValue(GetParam(), value);
      EXPECT_THROW(static_cast<void>(GetParam().read(json)), DecodingError) << json;
    }
  }
  static void isMatchedLetterForLetter() {
    KeyRow shouted = GetParam();
    for (char& c : shouted.key) c = static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
    expectEmptyOrFailure(GetParam(), documentWithValue(shouted, shouted.value));
  }
};

std::string nameOfRow(const TestParamInfo<KeyRow>& row) { return row.param.key; }

std::string shown(const std::string& text) { return text; }
std::string shown(double number) { return std::to_string(number); }
std::string shown(bool flag) { return flag ? "true" : "false"; }
std::string shown(const MediaFormat& format) { return format.quality; }
std::string shown(const SubtitleTrack& track) { return track.id; }
std::string shown(const JobResult& result) { return result.kind; }
std::string shown(const JobError& error) { return error.message; }
template <class T>
std::string shown(const std::optional<T>& value) {
  return value ? shown(*value) : "none";
}
template <class T>
std::string shown(const std::optional<std::vector<T>>& list) {
  if (!list) return "none";
  std::string all;
  for (const T& element : *list) all += shown(element) + ";";
  return all;
}

template <class Member>
auto fieldOfJob(Member member) {
  return [member](const std::string& json) { return shown(decodeJob(json).*member); };
}

class MediaJobKeysTable : public KeysTable {};

std::vector<KeyRow> mediaJobRows() {
  using enum Kind;
  const auto optionalRow = [](std::string key, Kind kind, std::string value, std::string asShown,
                              auto member) {
    return KeyRow{std::move(key),
                  kind,
                  Presence::optional,
                  R"({"jobId":"a","status":"queued",)",
                  "}",
                  std::move(value),
                  std::move(asShown),
                  fieldOfJob(member)};
  };
  return {
      {"jobId", string, Presence::required, R"({"status":"queued",)", "}", R"("x-1")", "x-1",
       fieldOfJob(&MediaJob::jobId)},
      {"status", string, Presence::required, R"({"jobId":"a",)", "}", R"("probing")", "probing",
       fieldOfJob(&MediaJob::status)},
      optionalRow("progress", decimal, "12.5", "12.500000", &MediaJob::progress),
      optionalRow("stage", string, R"("Merging…")", "Merging…", &MediaJob::stage),
      optionalRow("title", string, R"("A title")", "A title", &MediaJob::title),
      optionalRow("duration", decimal, "3600", "3600.000000", &MediaJob::duration),
      optionalRow("formats", array, R"([{"quality":"1080p"},{"quality":"720p"},{"quality":"720p"}])",
                  "1080p;720p;720p;", &MediaJob::formats),
      optionalRow("subtitles", array, R"([{"id":"en"},{"id":"de"}])", "en;de;", &MediaJob::subtitles),
      optionalRow("originalLanguage", string, R"("ja")", "ja", &MediaJob::originalLanguage),
      optionalRow("recommendedSubtitleId", string, R"("en")", "en", &MediaJob::recommendedSubtitleId),
      optionalRow("result", object, R"({"kind":"file"})", "file", &MediaJob::result),
      optionalRow("error", object, R"({"message":"It broke."})", "It broke.", &MediaJob::error),
  };
}

TEST_P(MediaJobKeysTable, TakesAValueOfItsType) { takesAValueOfItsType(); }
TEST_P(MediaJobKeysTable, AbsentIsEmptyWhenOptionalAndFailsWhenRequired) { absentIsEmptyOrFails(); }
TEST_P(MediaJobKeysTable, NullIsEmptyWhenOptionalAndFailsWhenRequired) { nullIsEmptyOrFails(); }
TEST_P(MediaJobKeysTable, RefusesEveryOtherType) { refusesEveryOtherType(); }
TEST_P(MediaJobKeysTable, IsMatchedLetterForLetter) { isMatchedLetterForLetter(); }
INSTANTIATE_TEST_SUITE_P(Rows, MediaJobKeysTable, ValuesIn(mediaJobRows()), nameOfRow);

class MediaFormatKeysTable : public KeysTable {};

std::vector<KeyRow> mediaFormatRows() {
  return {{"quality", Kind::string, Presence::required, R"({"jobId":"a","status":"s","formats":[{)", "}]}",
           R"("1080p60")", "1080p60",
           [](const std::string& json) { return decodeJob(json).formats.value().at(0).quality; }}};
}

TEST_P(MediaFormatKeysTable, TakesAValueOfItsType) { takesAValueOfItsType(); }
TEST_P(MediaFormatKeysTable, AbsentFails) { absentIsEmptyOrFails(); }
TEST_P(MediaFormatKeysTable, NullFails) { nullIsEmptyOrFails(); }
TEST_P(MediaFormatKeysTable, RefusesEveryOtherType) { refusesEveryOtherType(); }
TEST_P(MediaFormatKeysTable, IsMatchedLetterForLetter) { isMatchedLetterForLetter(); }
INSTANTIATE_TEST_SUITE_P(Rows, MediaFormatKeysTable, ValuesIn(mediaFormatRows()), nameOfRow);

class SubtitleTrackKeysTable : public KeysTable {};

std::vector<KeyRow> subtitleTrackRows() {
  using enum Kind;
  const auto row = [](std::string key, Kind kind, Presence presence, std::string value, std::string asShown,
                      auto member) {
    const std::string id = presence == Presence::required ? "" : R"("id":"t",)";
    return KeyRow{
        std::move(key),
        kind,
        presence,
        R"({"jobId":"a","status":"s","subtitles":[{)" + id,
        "}]}",
        std::move(value),
        std::move(asShown),
        [member](const std::string& json) { return shown(decodeJob(json).subtitles.value().at(0).*member); }};
  };
  return {row("id", string, Presence::required, R"("en-US")", "en-US", &SubtitleTrack::id),
          row("language", string, Presence::optional, R"("en")", "en", &SubtitleTrack::language),
          row("label", string, Presence::optional, R"("English")", "English", &SubtitleTrack::label),
          row("automatic", boolean, Presence::optional, "true", "true", &SubtitleTrack::automatic),
          row("original", boolean, Presence::optional, "false", "false", &SubtitleTrack::original)};
}

TEST_P(SubtitleTrackKeysTable, TakesAValueOfItsType) { takesAValueOfItsType(); }
TEST_P(SubtitleTrackKeysTable, AbsentIsEmptyWhenOptionalAndFailsWhenRequired) { absentIsEmptyOrFails(); }
TEST_P(SubtitleTrackKeysTable, NullIsEmptyWhenOptionalAndFailsWhenRequired) { nullIsEmptyOrFails(); }
TEST_P(SubtitleTrackKeysTable, RefusesEveryOtherType) { refusesEveryOtherType(); }
TEST_P(SubtitleTrackKeysTable, IsMatchedLetterForLetter) { isMatchedLetterForLetter(); }
INSTANTIATE_TEST_SUITE_P(Rows, SubtitleTrackKeysTable, ValuesIn(subtitleTrackRows()), nameOfRow);

class JobResultKeysTable : public KeysTable {};

std::vector<KeyRow> jobResultRows() {
  const auto row = [](std::string key, Presence presence, std::string value, std::string asShown,
                      auto member) {
    const std::string kind = presence == Presence::required ? "" : R"("kind":"file",)";
    return KeyRow{
        std::move(key),
        Kind::string,
        presence,
        R"({"jobId":"a","status":"s","result":{)" + kind,
        "}}",
        std::move(value),
        std::move(asShown),
        [member](const std::string& json) { return shown(decodeJob(json).result.value().*member); }};
  };
  return {row("kind", Presence::required, R"("nothing")", "nothing", &JobResult::kind),
          row("downloadUrl", Presence::optional, R"("/jobs/a/result")", "/jobs/a/result",
              &JobResult::downloadUrl),
          row("filename", Presence::optional, R"("a.mp4")", "a.mp4", &JobResult::filename)};
}

TEST_P(JobResultKeysTable, TakesAValueOfItsType) { takesAValueOfItsType(); }
TEST_P(JobResultKeysTable, AbsentIsEmptyWhenOptionalAndFailsWhenRequired) { absentIsEmptyOrFails(); }
TEST_P(JobResultKeysTable, NullIsEmptyWhenOptionalAndFailsWhenRequired) { nullIsEmptyOrFails(); }
TEST_P(JobResultKeysTable, RefusesEveryOtherType) { refusesEveryOtherType(); }
TEST_P(JobResultKeysTable, IsMatchedLetterForLetter) { isMatchedLetterForLetter(); }
INSTANTIATE_TEST_SUITE_P(Rows, JobResultKeysTable, ValuesIn(jobResultRows()), nameOfRow);

class JobErrorKeysTable : public KeysTable {};

std::vector<KeyRow> jobErrorRows() {
  return {{"message", Kind::string, Presence::required, R"({"jobId":"a","status":"failed","error":{)", "}}",
           R"("It broke.")", "It broke.",
           [](const std::string& json) { return decodeJob(json).error.value().message; }}};
}

TEST_P(JobErrorKeysTable, TakesAValueOfItsType) { takesAValueOfItsType(); }
TEST_P(JobErrorKeysTable, AbsentFails) { absentIsEmptyOrFails(); }
TEST_P(JobErrorKeysTable, NullFails) { nullIsEmptyOrFails(); }
TEST_P(JobErrorKeysTable, RefusesEveryOtherType) { refusesEveryOtherType(); }
TEST_P(JobErrorKeysTable, IsMatchedLetterForLetter) { isMatchedLetterForLetter(); }
INSTANTIATE_TEST_SUITE_P(Rows, JobErrorKeysTable, ValuesIn(jobErrorRows()), nameOfRow);

class HelperErrorBodyKeysTable : public KeysTable {};

std::vector<KeyRow> helperErrorBodyRows() {
  const auto read = [](const std::string& json) { return decodeRecord<HelperErrorBody>(json).error.message; };
  return {{"error", Kind::object, Presence::required, "{", "}", R"({"message":"Not today."})", "Not today.",
           read},
          {"message", Kind::string, Presence::required, R"({"error":{)", "}}", R"("Not today.")",
           "Not today.", read}};
}

TEST_P(HelperErrorBodyKeysTable, TakesAValueOfItsType) { takesAValueOfItsType(); }
TEST_P(HelperErrorBodyKeysTable, AbsentFails) { absentIsEmptyOrFails(); }
TEST_P(HelperErrorBodyKeysTable, NullFails) { nullIsEmptyOrFails(); }
TEST_P(HelperErrorBodyKeysTable, RefusesEveryOtherType) { refusesEveryOtherType(); }
TEST_P(HelperErrorBodyKeysTable, IsMatchedLetterForLetter) { isMatchedLetterForLetter(); }
INSTANTIATE_TEST_SUITE_P(Rows, HelperErrorBodyKeysTable, ValuesIn(helperErrorBodyRows()), nameOfRow);

// ---- The words of a job's status. What the flows make of each is proved where the polling is.

struct StatusRow {
  std::string name;
  std::string word;
  bool isRunning;
  bool isCompleted;

  friend void PrintTo(const StatusRow& row, std::ostream* out) { *out << row.name; }
};

class StatusWordTable : public TestWithParam<StatusRow> {};

TEST_P(StatusWordTable, IsJudgedLetterForLetter) {
  EXPECT_EQ(isRunningStatus(GetParam().word), GetParam().isRunning);
  EXPECT_EQ(GetParam().word == completedStatus, GetParam().isCompleted);
}

INSTANTIATE_TEST_SUITE_P(Rows, StatusWordTable,
                         ValuesIn(std::vector<StatusRow>{{"queued", "queued", true, false},
                                                         {"probing", "probing", true, false},
                                                         {"downloading", "downloading", true, false},
                                                         {"processing", "processing", true, false},
                                                         {"completed", "completed", false, true},
                                                         {"leadingBlank", " queued", false, false},
                                                         {"trailingBlank", "probing ", false, false},
                                                         {"beginningOfAWord", "download", false, false},
                                                         {"longerThanAWord", "processing…", false, false},
                                                         {"anyOtherWord", "failed", false, false}}),
                         [](const TestParamInfo<StatusRow>& row) { return row.param.name; });

// ---- The cases that are easy to get wrong.

TEST(DecodingEdgeCases, AJobWithIdentifierAndStatusAloneHasAllElseEmpty) {
  const MediaJob job = decodeJob(R"({"jobId":"a","status":"queued"})");
  EXPECT_EQ(job.jobId, "a");
  EXPECT_EQ(job.status, "queued");
  EXPECT_FALSE(job.progress);
  EXPECT_FALSE(job.stage);
  EXPECT_FALSE(job.title);
  EXPECT_FALSE(job.duration);
  EXPECT_FALSE(job.formats);
  EXPECT_FALSE(job.subtitles);
  EXPECT_FALSE(job.originalLanguage);
  EXPECT_FALSE(job.recommendedSubtitleId);
  EXPECT_FALSE(job.result);
  EXPECT_FALSE(job.error);
}

TEST(DecodingEdgeCases, AJobWithoutIdentifierOrStatusFailsEvenIfAllElseIsValid) {
  const std::string rest =
      R"("progress":1,"stage":"s","title":"t","duration":2,"formats":[],"subtitles":[]})";
  expectNoJob(R"({"status":"queued",)" + rest);
  expectNoJob(R"({"jobId":"a",)" + rest);
}

TEST(DecodingEdgeCases, AnIntegerIsADecimalAndAStringOfDigitsFailsTheWholeJob) {
  EXPECT_EQ(decodeJob(jobWith(R"("progress":55)")).progress, 55.0);
  expectNoJob(jobWith(R"("progress":"55")"));
}

TEST(DecodingEdgeCases, ATrackWithAnIdentifierAloneHasFlagsThatAreNeitherTrueNorFalse) {
  const MediaJob job = decodeJob(jobWith(R"("subtitles":[{"id":"en"}])"));
  ASSERT_TRUE(job.subtitles);
  ASSERT_EQ(job.subtitles->size(), 1U);
  const SubtitleTrack& track = job.subtitles->front();
  EXPECT_EQ(track.id, "en");
  EXPECT_FALSE(track.language);
  EXPECT_FALSE(track.label);
  EXPECT_EQ(track.automatic, std::nullopt);
  EXPECT_EQ(track.original, std::nullopt);
}

TEST(DecodingEdgeCases, AResultNeedsItsKindAndNothingElse) {
  const MediaJob job = decodeJob(jobWith(R"("result":{"kind":"file"})"));
  ASSERT_TRUE(job.result);
  EXPECT_EQ(job.result->kind, "file");
  EXPECT_FALSE(job.result->filename);
  expectNoJob(jobWith(R"("result":{"filename":"a.mp4"})"));
}

TEST(DecodingEdgeCases, AStatusInOtherLettersOrOutsideTheVocabularyIsNeitherRunningNorCompleted) {
  for (const char* word : {"Completed", "COMPLETED", "completed ", " completed", "complete", "failed",
                           "cancelled", "Queued", "DOWNLOADING", "error", ""}) {
    const MediaJob job = decodeJob(R"({"jobId":"a","status":")" + std::string(word) + R"("})");
    EXPECT_FALSE(isRunningStatus(job.status)) << word;
    EXPECT_NE(job.status, completedStatus) << word;
  }
}

TEST(DecodingEdgeCases, AnErrorBodyNeedsAnObjectWithAMessageAndAPlainStringDoesNotDecode) {
  EXPECT_EQ(decodeRecord<HelperErrorBody>(R"({"error":{"message":"No such site."}})").error.message,
            "No such site.");
  EXPECT_THROW(static_cast<void>(decodeRecord<HelperErrorBody>(R"({"error":"No such site."})")),
               DecodingError);
}

TEST(DecodingEdgeCases, ACancelAnswerOfNullIsAccepted) {
  EXPECT_FALSE(decodeRecord<std::optional<MediaJob>>("null"));
  EXPECT_FALSE(decodeRecord<std::optional<MediaJob>>(" null\n"));
}

// ---- The rest of the rules.

TEST(Decoding, AnOptionalJobIsAWholeJobOrNothing) {
  const auto job = decodeRecord<std::optional<MediaJob>>(R"({"jobId":"a","status":"cancelled"})");
  ASSERT_TRUE(job);
  EXPECT_EQ(job->status, "cancelled");
  for (const char* json : {"{}", R"({"jobId":"a"})", "[]", "false", "0", "", R"("null")"}) {
    EXPECT_THROW(static_cast<void>(decodeRecord<std::optional<MediaJob>>(json)), DecodingError) << json;
  }
}

TEST(Decoding, NullIsNoJobWhereAJobIsDue) { expectNoJob("null"); }

TEST(Decoding, WhatIsNoObjectIsNoJob) {
  for (const char* json : {"[]", R"("text")", "1", "true", R"([{"jobId":"a","status":"queued"}])"})
    expectNoJob(json);
}

TEST(Decoding, KeysThatNoRecordListsAreIgnored) {
  const MediaJob job = decodeJob(jobWith(
      R"("more":{"deep":[1,{"x":null}]},"formats":[{"quality":"q","codec":7}],"result":{"kind":"k","size":1})"));
  EXPECT_EQ(job.formats.value().at(0).quality, "q");
}

TEST(Decoding, OneBadElementFailsTheWholeAnswer) {
  expectNoJob(jobWith(R"("formats":[{"quality":"720p"},{"quality":1}])"));
  expectNoJob(jobWith(R"("formats":[{"quality":"720p"},null])"));
  expectNoJob(jobWith(R"("formats":["720p"])"));
  expectNoJob(jobWith(R"("subtitles":[{"id":"en"},{"label":"German"}])"));
  expectNoJob(jobWith(R"("subtitles":[{"id":"en","automatic":1}])"));
  expectNoJob(jobWith(R"("error":{"message":null})"));
}

TEST(Decoding, EmptyListsArePresentAndEmpty) {
  const MediaJob job = decodeJob(jobWith(R"("formats":[],"subtitles":[])"));
  ASSERT_TRUE(job.formats);
  ASSERT_TRUE(job.subtitles);
  EXPECT_TRUE(job.formats->empty());
  EXPECT_TRUE(job.subtitles->empty());
}

TEST(Decoding, ListsKeepTheProcessorsOrderAndEqualEntries) {
  const MediaJob job = decodeJob(jobWith(R"("subtitles":[{"id":"b"},{"id":"a"},{"id":"b"}])"));
  std::vector<std::string> identifiers;
  for (const SubtitleTrack& track : *job.subtitles) identifiers.push_back(track.id);
  EXPECT_EQ(identifiers, (std::vector<std::string>{"b", "a", "b"}));
}

TEST(Decoding, AFailureNamesThePlaceOfTheFault) {
  EXPECT_THAT(decodingFailure(jobWith(R"("subtitles":[{"id":"en"},{"label":"German"}])")),
              HasSubstr("job.subtitles[1].id"));
  EXPECT_THAT(decodingFailure(jobWith(R"("progress":"55")")), HasSubstr("job.progress"));
}

TEST(Decoding, AFailureIsASentenceThatSaysWhatIsWrong) {
  const std::string beginning = "The local processor's answer could not be read: job";
  for (const auto& [keys, fault] : std::vector<std::pair<std::string, std::string>>{
           {R"("title":1)", ".title is not a string."},
           {R"("subtitles":[{"id":"en","automatic":0}])", ".subtitles[0].automatic is not true or false."},
           {R"("progress":true)", ".progress is not a number."},
           {R"("progress":1e999)", ".progress is out of range."},
           {R"("result":[])", ".result is not an object."},
           {R"("result":{})", ".result.kind is missing."},
           {R"("formats":{})", ".formats is not an array."}}) {
    EXPECT_EQ(decodingFailure(jobWith(keys)), beginning + fault);
  }
  EXPECT_EQ(decodingFailure("[]"), beginning + " is not an object.");
  EXPECT_THAT(decodingFailure("{"),
              MatchesRegex("The local processor's answer is not valid JSON: [a-z ]+JSON\\."));
}

TEST(Decoding, TextsKeepEveryCharacter) {
  const MediaJob job = decodeJob(jobWith(R"("title":"a\u2026\n\"b\\\/\ud83d\ude00 …")"));
  EXPECT_EQ(job.title, "a\u2026\n\"b\\/\U0001F600 …");
}

TEST(Decoding, TextsKeepTheNullCharacterAndWhatFollows) {
  EXPECT_EQ(decodeJob(jobWith(R"("error":{"message":"before\u0000after"})")).error.value().message,
            std::string("before\0after", 12));
}

// ---- Answers that no processor should send.

TEST(HostileAnswers, DeepNestingFailsWithoutACrash) {
  expectNoJob(repeated("[", 1000000));
  expectNoJob(repeated(R"({"a":)", 1000000));
  expectNoJob(jobWith("\"more\":" + repeated("[", 100000) + repeated("]", 100000)));
}

TEST(HostileAnswers, NestingFailsBeyondSixtyFourLevels) {
  const auto nested = [](std::size_t arrays) {
    return jobWith("\"more\":" + repeated("[", arrays) + repeated("]", arrays));
  };
  EXPECT_EQ(decodeJob(nested(63)).jobId, "a");  // the job itself is a level
  expectNoJob(nested(64));
}

TEST(HostileAnswers, TextThatIsNotUtf8FailsWhereverItStands) {
  for (const char* bytes : {"\xff", "\xc3", "\xc0\xaf", "\xed\xa0\x80", "\xf5\x80\x80\x80", "\x80"}) {
    expectNoJob(jobWith(R"("title":")" + std::string(bytes) + "\""));
    expectNoJob(jobWith(R"("more":")" + std::string(bytes) + "\""));
    expectNoJob(jobWith("\"" + std::string(bytes) + "\":1"));
  }
}

TEST(HostileAnswers, EscapesOfHalfACharacterFail) {
  expectNoJob(jobWith(R"("title":"\ud800")"));
  expectNoJob(jobWith(R"("title":"\udc00\ud800")"));
  expectNoJob(jobWith(R"("title":"\u12")"));
}

TEST(HostileAnswers, NumbersBeyondADoubleFail) {
  for (const char* number : {"1e999", "-1e999", "1e309", "1e99999999999999999999"}) {
    expectNoJob(jobWith("\"progress\":" + std::string(number)));
    expectNoJob(jobWith("\"duration\":" + std::string(number)));
  }
  expectNoJob(jobWith("\"duration\":1" + repeated("0", 400)));
}

TEST(HostileAnswers, HugeIntegersAreReadAsDecimals) {
  EXPECT_EQ(decodeJob(jobWith(R"("duration":9223372036854775807)")).duration, 9223372036854775808.0);
  EXPECT_EQ(decodeJob(jobWith(R"("duration":18446744073709551615)")).duration, 18446744073709551616.0);
  EXPECT_EQ(decodeJob(jobWith(R"("duration":-9223372036854775809)")).duration, -9223372036854775808.0);
  EXPECT_EQ(decodeJob(jobWith("\"duration\":1" + repeated("0", 30))).duration, 1e30);
}

TEST(HostileAnswers, ADurationOfTenToTheThreeHundredDecodes) {
  EXPECT_EQ(decodeJob(jobWith(R"("duration":1e300)")).duration, 1e300);
}

double decodedNumber(const std::string& number) {
  return decodeJob(jobWith("\"duration\":" + number)).duration.value();
}

TEST(Numbers, AreValidWhateverTheirDigitsAndExponentsAre) {
  for (const char* zero : {"0e999", "0.0e400", "-0e999", "0E+2147483648", "0e99999999999999999999", "1e-999",
                           "1e-99999999999999999999", "0.000e-5", "-0"}) {
    EXPECT_EQ(decodedNumber(zero), 0) << zero;
  }
  EXPECT_EQ(decodedNumber("1" + repeated("0", 400) + "e-400"), 1);
  EXPECT_EQ(decodedNumber("0." + repeated("0", 400) + "1e401"), 1);
  EXPECT_EQ(decodedNumber(repeated("9", 1000) + "E-999"), 10);
  EXPECT_EQ(decodedNumber("0.5" + repeated("0", 100000)), 0.5);
}

TEST(Numbers, MayHaveExponentsOfOneDigit) {
  EXPECT_EQ(decodedNumber("15e2"), 1500);
  EXPECT_EQ(decodedNumber("15E+2"), 1500);
  EXPECT_EQ(decodedNumber("15e-1"), 1.5);
}

TEST(Numbers, AreTheNearestDouble) {
  EXPECT_EQ(decodedNumber("9007199254740993"), 9007199254740992.0);  // a tie goes to the even one
  EXPECT_EQ(decodedNumber("9007199254740993." + repeated("0", 40) + "1"), 9007199254740994.0);
  EXPECT_EQ(decodedNumber("1.7976931348623157e308"), std::numeric_limits<double>::max());
  EXPECT_EQ(decodedNumber("1.7976931348623158e308"), std::numeric_limits<double>::max());
  EXPECT_EQ(decodedNumber("4.9406564584124654e-324"), std::numeric_limits<double>::denorm_min());
  EXPECT_EQ(decodedNumber("2.4703282292062328e-324"), std::numeric_limits<double>::denorm_min());
  EXPECT_EQ(decodedNumber("2.4703282292062327e-324"), 0);
  EXPECT_EQ(decodedNumber("2.2250738585072011e-308"), 2.2250738585072011e-308);
  EXPECT_EQ(decodedNumber("123456789012345678901234567890e-20"), 1234567890.1234567890123456789);
}

TEST(Numbers, ReadBackAsTheyWereWrittenToSeventeenPlaces) {
  std::mt19937_64 bits;  // NOLINT(cert-msc32-c,cert-msc51-cpp): the same numbers in every run
  for (int i = 0; i < 20000; ++i) {
    const auto number = std::bit_cast<double>(bits());
    if (!std::isfinite(number)) continue;
    std::array<char, 32> text{};
    std::snprintf(text.data(), text.size(), "%.17g", number);
    ASSERT_EQ(decodedNumber(text.data()), number) << text.data();
  }
}

TEST(Numbers, BeyondADoubleAreNoFaultWhereNoRecordLooks) {
  EXPECT_EQ(decodeJob(jobWith(R"("more":[1e999,-1e99999999999999999999])")).jobId, "a");
}

TEST(Numbers, InTextsAreText) {
  const MediaJob job = decodeJob(jobWith(R"("title":"\"1e999\" -0.50 \\","stage":"01","progress":7)"));
  EXPECT_EQ(job.title, R"("1e999" -0.50 \)");
  EXPECT_EQ(job.stage, "01");
  EXPECT_EQ(job.progress, 7);
}

TEST(Numbers, ThatJsonLacksFailWhereverTheyStand) {
  for (const char* number :
       {"-",    "--1",   "+1",     "-+1",   "01",   "-01",       "00",    "1.",   "1.e5",
        ".5",   "-.5",   "1e",     "1e+",   "1e-x", "1.5.5",     "1e5e5", "1-1",  "1 1",
        "0x10", "1_000", "1,000,", "1e5.0", "NaN",  "-Infinity", "tr1ue", "nul1", "1\"2\""}) {
    expectNoJob(jobWith("\"progress\":" + std::string(number)));
    expectNoJob(jobWith("\"more\":[" + std::string(number) + "]"));
  }
  for (const char* number : {"1", "-", "1e999"}) expectNoJob(number);
}

TEST(HostileAnswers, WordsForNumbersThatJsonLacksFail) {
  for (const char* word : {"NaN", "Infinity", "-Infinity", "+1", "01", ".5", "0x10"}) {
    expectNoJob(jobWith("\"progress\":" + std::string(word)));
  }
}

TEST(HostileAnswers, NothingMayFollowTheRecordButWhiteSpace) {
  EXPECT_EQ(decodeJob("\r\n\t {\"jobId\":\"a\",\"status\":\"queued\"} \n").jobId, "a");
  for (const char* rest : {"x", "{}", ",", "}", "\"", "null"}) {
    expectNoJob(R"({"jobId":"a","status":"queued"})" + std::string(rest));
  }
  expectNoJob(std::string(R"({"jobId":"a","status":"queued"})") + '\0');
}

TEST(HostileAnswers, AnEmptyAnswerFails) {
  expectNoJob("");
  expectNoJob(" \n");
}

TEST(HostileAnswers, AnAnswerCutShortFailsWhereverItIsCut) {
  const std::string whole =
      R"({"jobId":"a","status":"queued","progress":5.5,"subtitles":[{"id":"é","automatic":true}],"error":null})";
  ASSERT_EQ(decodeJob(whole).jobId, "a");
  for (std::size_t length = 0; length < whole.size(); ++length) expectNoJob(whole.substr(0, length));
}

TEST(HostileAnswers, WhatOnlyLooksLikeJsonFails) {
  expectNoJob(R"({"jobId":"a","status":"queued",})");
  expectNoJob(R"({"jobId":"a","status":"queued"/* note */})");
  expectNoJob(R"({'jobId':'a','status':'queued'})");
  expectNoJob("\xEF\xBB\xBF{\"jobId\":\"a\",\"status\":\"queued\"}");
  expectNoJob("<html><body>502 Bad Gateway</body></html>");
}

TEST(HostileAnswers, MegabytesDecode) {
  const std::string title(std::size_t{8} << 20, 't');
  EXPECT_EQ(decodeJob(jobWith(R"("title":")" + title + "\"")).title, title);
  constexpr std::size_t tracks = 100000;
  const MediaJob job =
      decodeJob(jobWith("\"subtitles\":[" + repeated(R"({"id":"en"},)", tracks) + R"({"id":"de"}])"));
  EXPECT_EQ(job.subtitles.value().size(), tracks + 1);
}

// ---- The health answer.

TEST(HealthAnswer, IsHealthyWhenItsStatusIsOk) {
  EXPECT_TRUE(isHealthyAnswer(R"({"status":"ok"})"));
  EXPECT_TRUE(isHealthyAnswer(" {\"version\":1,\"status\":\"ok\"}\n"));
}

TEST(HealthAnswer, EverythingElseIsNotHealthy) {
  for (const char* json :
       {"", "ok", R"("ok")", "{}", R"({"status":"OK"})", R"({"status":"ok "})", R"({"status":true})",
        R"({"status":null})", R"({"Status":"ok"})", R"([{"status":"ok"}])", R"({"status":"ok")",
        R"({"status":"ok"}x)", R"({"status":["ok"]})", "null"}) {
    EXPECT_FALSE(isHealthyAnswer(json)) << json;
  }
  EXPECT_FALSE(isHealthyAnswer(repeated("[", 1000000)));
  EXPECT_FALSE(isHealthyAnswer(std::string_view("12").substr(0, 1)));
  EXPECT_FALSE(isHealthyAnswer("{\"status\":\"ok\",\"x\":\"\xff\"}"));
}

}  // namespace
}  // namespace zunto
