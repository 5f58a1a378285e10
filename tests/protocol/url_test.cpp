#include "protocol/url.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

namespace zunto {
namespace {

std::string absolute(const std::string& text) {
  const std::optional<Url> url = Url::parse(text);
  return url ? url->absoluteString() : "no URL";
}

std::optional<std::string> schemeOf(const std::string& text) { return Url::parse(text).value().scheme(); }

std::optional<std::string> linkIn(const std::string& text) {
  return Url::parse(text).value().firstQueryValue("url");
}

TEST(UrlParsing, KeepsAnOrdinaryLinkAsItIs) {
  for (const char* link : {"https://example.org", "https://example.org/watch?v=a-b_c&t=1s#top",
                           "https://user:pw@example.org:8443/a%20b/;p=1?q=%E2%80%A6", "https://[::1]:80/x",
                           "mailto:a@b.example"}) {
    EXPECT_EQ(absolute(link), link);
  }
}

TEST(UrlParsing, EncodesWhatAnAddressBarShowsInPathAndQuery) {
  EXPECT_EQ(absolute("https://example.org/видео/ü?q=日本"),
            "https://example.org/%D0%B2%D0%B8%D0%B4%D0%B5%D0%BE/%C3%BC?q=%E6%97%A5%E6%9C%AC");
  EXPECT_EQ(absolute("https://example.org/…"), "https://example.org/%E2%80%A6");
}

TEST(UrlParsing, EncodesWhatBrowsersLeaveBare) {
  EXPECT_EQ(absolute("https://example.org/a|b?x={1}&y=[2]&z=\"^`<>\\"),
            "https://example.org/a%7Cb?x=%7B1%7D&y=%5B2%5D&z=%22%5E%60%3C%3E%5C");
}

TEST(UrlParsing, TakesBracketsForAnIpAddressOnlyInAnAuthorityStraightBehindTheScheme) {
  EXPECT_EQ(absolute("zunto-helper:?x[]=1&url=https://e.org/a"),
            "zunto-helper:?x%5B%5D=1&url=https://e.org/a");
  EXPECT_EQ(linkIn("zunto-helper:?x[]=1&url=https://e.org/a"), "https://e.org/a");
  EXPECT_EQ(linkIn("zunto-helper:?url=https://e.org/[a]//b"), "https://e.org/[a]//b");
  EXPECT_EQ(linkIn("zunto-helper:open/[x]//?url=y"), "y");
  EXPECT_EQ(linkIn("zunto-helper:[x]#//?url=y"), std::nullopt);
  EXPECT_EQ(absolute("[a]?b=//c"), "%5Ba%5D?b=//c");
  EXPECT_EQ(absolute("https://[::1]/[a]"), "https://[::1]/%5Ba%5D");
  EXPECT_EQ(absolute("//[::1]/[a]"), "//[::1]/%5Ba%5D");
}

TEST(UrlParsing, EncodesAPercentSignThatStartsNoEscape) {
  EXPECT_EQ(absolute("https://example.org/100%?a=%zz&b=%4"), "https://example.org/100%25?a=%25zz&b=%254");
}

TEST(UrlParsing, KeepsEveryEscape) {
  EXPECT_EQ(absolute("https://example.org/%00%0f%F0%a9?q=%0A"), "https://example.org/%00%0f%F0%a9?q=%0A");
}

TEST(UrlParsing, EncodesANumberSignInsideAFragment) {
  EXPECT_EQ(absolute("https://example.org/a#b#c"), "https://example.org/a#b%23c");
}

TEST(UrlParsing, RefusesWhatIsNoUrl) {
  for (const char* text :
       {"", "https://example.org/a b", "https://exa mple.org", "https://example.org/\n", "\t",
        "https://[::1/", "://example.org", "1https://example.org", "https://example.org/\xff",
        "https://example.org/\x7f", "https://example.org/\x1f"}) {
    EXPECT_EQ(absolute(text), "no URL") << text;
  }
  EXPECT_EQ(absolute(std::string("https://example.org/\0x", 22)), "no URL");
}

TEST(UrlParsing, TakesALinkOfAHundredKilobytes) {
  const std::string link = "https://example.org/?q=" + std::string(100000, 'x');
  EXPECT_EQ(absolute(link), link);
  EXPECT_EQ(linkIn("zunto-helper://open?url=" + link), link);
}

TEST(UrlScheme, StaysAsWritten) {
  EXPECT_EQ(schemeOf("https://example.org"), "https");
  EXPECT_EQ(schemeOf("HTTPS://example.org"), "HTTPS");
  EXPECT_EQ(schemeOf("zunto-helper:open"), "zunto-helper");
}

TEST(UrlScheme, IsNoneInARelativeLink) {
  EXPECT_EQ(schemeOf("example.org/watch"), std::nullopt);
  EXPECT_EQ(schemeOf("//example.org/watch"), std::nullopt);
}

TEST(UrlQuery, GivesTheDecodedValueOfTheFirstItemOfThatName) {
  EXPECT_EQ(linkIn("zunto-helper://open?a=1&url=https%3A%2F%2Fexample.org%2F%3Fv%3D1%26t%3D2&url=second"),
            "https://example.org/?v=1&t=2");
}

TEST(UrlQuery, APlusStaysAPlus) {
  EXPECT_EQ(linkIn("zunto-helper://open?url=https://e.org/a+b%2B"), "https://e.org/a+b+");
}

TEST(UrlQuery, NamesAreComparedLetterForLetterAfterDecoding) {
  EXPECT_EQ(linkIn("zunto-helper://open?URL=x&Url=y"), std::nullopt);
  EXPECT_EQ(linkIn("zunto-helper://open?%75rl=x"), "x");
}

TEST(UrlQuery, AnItemWithoutValueHasNone) {
  EXPECT_EQ(linkIn("zunto-helper://open?url"), std::nullopt);
  EXPECT_EQ(linkIn("zunto-helper://open?url&url=x"), std::nullopt);
  EXPECT_EQ(linkIn("zunto-helper://open?"), std::nullopt);
  EXPECT_EQ(linkIn("zunto-helper://open"), std::nullopt);
}

TEST(UrlQuery, AnEmptyQueryBeforeAFragmentHasNoItems) {
  EXPECT_EQ(linkIn("zunto-helper:?#url=x"), std::nullopt);
  EXPECT_EQ(linkIn("zunto-helper:?#" + std::string(5000, '~')), std::nullopt);
}

TEST(UrlQuery, AnEmptyValueIsNoLink) {
  EXPECT_EQ(linkIn("zunto-helper://open?url="), "");
  EXPECT_FALSE(Url::parse(""));
}

TEST(UrlQuery, AValueThatIsNotUtf8IsNone) { EXPECT_EQ(linkIn("zunto-helper://open?url=%ff"), std::nullopt); }

TEST(UrlQuery, KeepsCharactersOutsideAscii) {
  EXPECT_EQ(linkIn("zunto-helper://open?url=https://e.org/ü"), "https://e.org/ü");
}

TEST(UrlPaths, AreAppendedAsComponents) {
  const Url base = Url::parse("http://127.0.0.1:43127").value();
  EXPECT_EQ(base.appendingPath("health").absoluteString(), "http://127.0.0.1:43127/health");
  EXPECT_EQ(base.appendingPath("jobs/7/cancel").absoluteString(), "http://127.0.0.1:43127/jobs/7/cancel");
  EXPECT_EQ(Url::parse("http://127.0.0.1:43127/").value().appendingPath("jobs").absoluteString(),
            "http://127.0.0.1:43127/jobs");
}

TEST(UrlPaths, KeepEveryCharacterThatMayStandInAPath) {
  const std::string kept =
      "abcxyzABCXYZ0189-._~!$&'()*+,;=:@/";  // letters, digits, marks, sub-delimiters, ":", "@" and "/"
  EXPECT_EQ(Url::parse("http://127.0.0.1:43127").value().appendingPath(kept).absoluteString(),
            "http://127.0.0.1:43127/" + kept);
}

TEST(UrlPaths, KeepAnIdentifierFromReachingTheQuery) {
  const Url base = Url::parse("http://127.0.0.1:43127").value();
  EXPECT_EQ(base.appendingPath("jobs/a?b#c d%2F\r\n").absoluteString(),
            "http://127.0.0.1:43127/jobs/a%3Fb%23c%20d%252F%0D%0A");
  EXPECT_EQ(base.appendingPath("\"<>[\\]^`{|}").absoluteString(),
            "http://127.0.0.1:43127/%22%3C%3E%5B%5C%5D%5E%60%7B%7C%7D");
}

}  // namespace
}  // namespace zunto
