#include "protocol/helper_error.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace zunto {
namespace {

struct ErrorRow {
  std::string name;
  HelperErrorCode code;
  int number;
  std::string message;
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

TEST(HelperErrors, BelongToOneDomain) { EXPECT_EQ(HelperError::domain, "ZUNTO"); }

TEST(HelperErrors, CarryTheProcessorsOwnSentence) {
  const HelperError error(HelperErrorCode::jobDidNotComplete, "This video is private.");
  EXPECT_EQ(error.code(), HelperErrorCode::jobDidNotComplete);
  EXPECT_STREQ(error.message(), "This video is private.");
}

}  // namespace
}  // namespace zunto
