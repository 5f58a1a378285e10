#include "protocol/helper_error.h"

#include <gtest/gtest.h>

#include <ostream>
#include <string>
#include <vector>

namespace zunto {
namespace {

struct ErrorRow {
  std::string name;
  HelperErrorCode code;
  int number;
  std::string message;

  friend void PrintTo(const ErrorRow& row, std::ostream* out) { *out << row.name; }
};

class HelperErrorCodeTable : public ::testing::TestWithParam<ErrorRow> {};

TEST_P(HelperErrorCodeTable, HasItsNumberAndItsSentence) {
  const HelperError error(GetParam().code);
  EXPECT_EQ(error.code(), GetParam().code);
  EXPECT_EQ(static_cast<int>(error.code()), GetParam().number);
  EXPECT_EQ(error.message(), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    Rows, HelperErrorCodeTable,
    ::testing::ValuesIn(std::vector<ErrorRow>{
        {"code1", HelperErrorCode::noSessionToken, 1, "The local processor did not provide a session token."},
        {"code2", HelperErrorCode::jobDidNotComplete, 2, "The job did not complete."},
        {"code3", HelperErrorCode::noDownloadableFile, 3,
         "The completed job did not contain a downloadable file."},
        {"code4", HelperErrorCode::unreadableResult, 4, "The local result could not be read."},
        {"code5", HelperErrorCode::processorError, 5, "The local processor returned an error."}}),
    [](const ::testing::TestParamInfo<ErrorRow>& row) { return row.param.name; });

TEST(HelperErrorDeathTest, ACodeThatIsNoneEndsTheProgram) {
  EXPECT_DEATH(HelperError(static_cast<HelperErrorCode>(6)),
               "fatal error: a helper error has no such code\n");
}

TEST(HelperErrors, BelongToOneDomain) { EXPECT_EQ(HelperError::domain, "ZUNTO"); }

TEST(HelperErrors, CarryTheProcessorsOwnSentence) {
  const HelperError error(HelperErrorCode::jobDidNotComplete, "This video is private.");
  EXPECT_EQ(error.code(), HelperErrorCode::jobDidNotComplete);
  EXPECT_EQ(error.message(), "This video is private.");
}

TEST(HelperErrors, CarryASentenceWholeAlsoBehindANullCharacter) {
  const std::string sentence("before\0after", 12);
  const HelperError error(HelperErrorCode::jobDidNotComplete, sentence);
  EXPECT_EQ(error.message(), sentence);
  const Error copy = error;
  EXPECT_EQ(copy.message(), sentence);
  EXPECT_STREQ(copy.what(), "before");
}

}  // namespace
}  // namespace zunto
