#include "protocol/request_body.h"

#include <gtest/gtest.h>

#include <string>

namespace zunto {
namespace {

TEST(RequestBodies, AnEmptyBodyIsAnEmptyObject) { EXPECT_EQ(serialize({}), "{}"); }

TEST(RequestBodies, AreCompactAndKeepTheOrderOfTheirKeys) {
  EXPECT_EQ(serialize({{"z", "last"}, {"a", true}, {"m", false}}), R"({"z":"last","a":true,"m":false})");
}

TEST(RequestBodies, KeepTextsAndBooleansApart) {
  EXPECT_EQ(serialize({{"a", "true"}, {"b", true}, {"c", ""}}), R"({"a":"true","b":true,"c":""})");
}

TEST(RequestBodies, EscapeWhatJsonCannotHold) {
  EXPECT_EQ(serialize({{"text", std::string("\"\\\n\t\x01\0", 6)}}), R"({"text":"\"\\\n\t\u0001\u0000"})");
}

TEST(RequestBodies, LeaveOtherCharactersAsTheyAre) {
  EXPECT_EQ(serialize({{"text", "ü…·— \U0001F600"}}), "{\"text\":\"ü…·— \U0001F600\"}");
}

TEST(RequestBodies, HoldAKeyOnce) { EXPECT_EQ(serialize({{"a", "1"}, {"a", "2"}}), R"({"a":"2"})"); }

TEST(RequestBodies, ATextThatIsNotUtf8CannotBeWritten) {
  try {
    static_cast<void>(serialize({{"sourceUrl", "https://example.org/\xff"}}));
    FAIL() << "it was written";
  } catch (const EncodingError& failure) {
    EXPECT_EQ(failure.message(), "The request could not be written: “sourceUrl” is not valid text.");
  }
}

TEST(RequestBodies, HoldALinkOfAHundredKilobytes) {
  const std::string link = "https://example.org/" + std::string(100000, 'x');
  EXPECT_EQ(serialize({{"sourceUrl", link}}), R"({"sourceUrl":")" + link + "\"}");
}

}  // namespace
}  // namespace zunto
