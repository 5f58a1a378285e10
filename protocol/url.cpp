#include "protocol/url.h"

#include <algorithm>
#include <boost/url/grammar/hexdig_chars.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>
#include <cstddef>

#include "protocol/text.h"

namespace zunto {

namespace urls = boost::urls;

namespace {

constexpr std::string_view unreservedMarks = "-._~";
constexpr std::string_view subDelimiters = "!$&'()*+,;=";

bool contains(std::string_view set, char c) { return set.find(c) != std::string_view::npos; }

bool isAsciiAlphanumeric(char c) {
  return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

bool mayStandInPath(char c) {
  return isAsciiAlphanumeric(c) || contains(unreservedMarks, c) || contains(subDelimiters, c) || c == ':' ||
         c == '@' || c == '/';
}

void appendPercentEncoded(std::string& out, char c) {
  constexpr std::string_view digits = "0123456789ABCDEF";
  const auto byte = static_cast<unsigned char>(c);
  out += {'%', digits[byte >> 4U], digits[byte & 0x0FU]};
}

/// Where the authority ends, 0 when there is none: up to there brackets enclose an IP address, behind it they
/// are text.
std::size_t endOfAuthority(std::string_view text) {
  const std::size_t delimiter = text.find_first_of(":/?#");
  const bool hasScheme = delimiter != std::string_view::npos && text[delimiter] == ':';
  const std::size_t slashes = hasScheme ? delimiter + 1 : 0;
  if (!text.substr(slashes).starts_with("//")) return 0;
  return std::min(text.find_first_of("/?#", slashes + 2), text.size());
}

bool isBareInBrowsers(char c, bool inAuthority) {
  constexpr std::string_view bare = "\"<>\\^`{|}";
  return contains(bare, c) || (!inAuthority && (c == '[' || c == ']'));
}

bool startsEscape(std::string_view text) {
  return text.size() >= 3 && urls::grammar::hexdig_value(text[1]) >= 0 &&
         urls::grammar::hexdig_value(text[2]) >= 0;
}

/// `text` with what a link may show but not carry percent-encoded; blanks and control characters it does
/// neither.
std::string encodedAsLink(std::string_view text) {
  const std::size_t authorityEnd = endOfAuthority(text);
  const std::size_t fragment = std::min(text.find('#'), text.size());
  std::string encoded;
  encoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    const bool strayPercent = c == '%' && !startsEscape(text.substr(i));
    const bool insideFragment = c == '#' && i > fragment;
    if (static_cast<unsigned char>(c) >= 0x80 || strayPercent || insideFragment ||
        isBareInBrowsers(c, i < authorityEnd)) {
      appendPercentEncoded(encoded, c);
    } else {
      encoded += c;
    }
  }
  return encoded;
}

}  // namespace

std::optional<Url> Url::parse(std::string_view text) {
  if (text.empty() || !isUtf8(text)) return std::nullopt;
  std::string encoded = encodedAsLink(text);
  if (!urls::parse_uri_reference(encoded)) return std::nullopt;
  return Url(std::move(encoded));
}

std::optional<std::string> Url::scheme() const {
  const urls::url_view view = urls::parse_uri_reference(text_).value();
  if (!view.has_scheme()) return std::nullopt;
  return std::string(view.scheme());
}

std::optional<std::string> Url::firstQueryValue(std::string_view name) const {
  const urls::url_view view = urls::parse_uri_reference(text_).value();
  // An empty query has no items, though Boost 1.81 finds one behind it, in the fragment, and reads on from
  // there.
  if (view.encoded_query().empty()) return std::nullopt;
  for (const auto& item : view.encoded_params()) {
    if (std::string_view(item.key.decode()) != name) continue;
    if (!item.has_value) return std::nullopt;
    std::string value = item.value.decode();
    return isUtf8(value) ? std::optional(std::move(value)) : std::nullopt;
  }
  return std::nullopt;
}

Url Url::appendingPath(std::string_view path) const {
  std::string text = text_;
  if (!text.ends_with('/')) text += '/';
  for (const char c : path) {
    if (mayStandInPath(c)) {
      text += c;
    } else {
      appendPercentEncoded(text, c);
    }
  }
  return Url(std::move(text));
}

}  // namespace zunto
