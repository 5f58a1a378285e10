#include "protocol/text.h"

#include <gtest/gtest.h>

#include <string>
#include <string_view>

namespace zunto {
namespace {

TEST(Utf8Text, IsRecognised) {
  for (const char* text : {"", "a", "é", "…", "\U0001F600", "\U0010FFFF", "\x7f"})
    EXPECT_TRUE(isUtf8(text)) << text;
  EXPECT_TRUE(isUtf8(std::string(1, '\0')));
}

TEST(Utf8Text, OtherBytesAreNot) {
  for (const char* text : {"\xff", "\x80", "a\xc3", "\xc0\xaf", "\xe0\x80\x80", "\xed\xa0\x80",
                           "\xf4\x90\x80\x80", "\xf8\x88\x80\x80\x80", "ok\xe2\x80"}) {
    EXPECT_FALSE(isUtf8(text)) << text;
  }
}

TEST(TrimmedText, LosesWhiteSpaceAndLineEndsAtBothEndsOnly) {
  EXPECT_EQ(trimmed(" \t\r\n\v\f a b \n"), "a b");
  EXPECT_EQ(trimmed("a"), "a");
}

TEST(TrimmedText, LosesTheWhiteSpaceOfUnicodeToo) {
  for (const char* space :
       {"\u0085", "\u00A0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005", "\u2006",
        "\u2007", "\u2008", "\u2009", "\u200A", "\u200B", "\u2028", "\u2029", "\u202F", "\u205F", "\u3000"}) {
    EXPECT_EQ(trimmed(std::string(space) + "a" + space + "b" + space), "a" + std::string(space) + "b");
  }
}

TEST(TrimmedText, OfWhiteSpaceAloneIsEmpty) {
  EXPECT_EQ(trimmed(""), "");
  EXPECT_EQ(trimmed(" \u2003\n"), "");
}

TEST(TrimmedText, KeepsOtherCharactersAndStrayBytes) {
  EXPECT_EQ(trimmed("\x08!\x08"), "\x08!\x08");
  EXPECT_EQ(trimmed("\x0E!\x0E"), "\x0E!\x0E");
  EXPECT_EQ(trimmed(std::string_view("\u00A0").substr(0, 1)), "\xC2");
  EXPECT_EQ(trimmed(" …é "), "…é");
  EXPECT_EQ(trimmed("\u200C\u200Da\u2060"), "\u200C\u200Da\u2060");
  EXPECT_EQ(trimmed(" \xff "), "\xff");
}

TEST(CapitalizedWords, UpperCaseTheFirstLetterOfEachWordAndLowerCaseTheRest) {
  EXPECT_EQ(capitalizedWords("downloading"), "Downloading");
  EXPECT_EQ(capitalizedWords("POST processing"), "Post Processing");
  EXPECT_EQ(capitalizedWords("a b"), "A B");
  EXPECT_EQ(capitalizedWords("it's done"), "It's Done");
  EXPECT_EQ(capitalizedWords("waiting-for retry"), "Waiting-For Retry");
  EXPECT_EQ(capitalizedWords("zone ZOO a-z-A-Z"), "Zone Zoo A-Z-A-Z");
  EXPECT_EQ(capitalizedWords(""), "");
}

TEST(CapitalizedWords, GoOnBehindDigitsAndEndAtEveryOtherSign) {
  EXPECT_EQ(capitalizedWords("a0b9c"), "A0b9c");
  EXPECT_EQ(capitalizedWords("a/b:c_d@e[f`g{h"), "A/B:C_D@E[F`G{H");
  EXPECT_EQ(capitalizedWords("0a"), "0A");
}

TEST(CapitalizedWords, KeepCharactersOutsideAscii) {
  EXPECT_EQ(capitalizedWords("élan VITAL…"), "élan Vital…");
  EXPECT_EQ(capitalizedWords("\u2000a \u00FFa"), "\u2000a \u00FFa");
}

}  // namespace
}  // namespace zunto
