#include "protocol/json_text.h"

#include <fast_float/fast_float.h>

#include <bit>
#include <boost/json/monotonic_resource.hpp>
#include <boost/json/stream_parser.hpp>
#include <boost/system/error_code.hpp>
#include <cstddef>
#include <cstdint>
#include <string>

#include "protocol/decoding.h"

namespace zunto {

namespace json = boost::json;

namespace {

constexpr std::size_t maximumDepth = 64;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

/// The length of the number that `text` begins with; 0 when it begins with none that JSON knows.
std::size_t numberLength(std::string_view text) {
  const auto endOfDigits = [text](std::size_t at) {
    while (at < text.size() && isDigit(text[at])) ++at;
    return at;
  };
  const std::size_t integer = text.starts_with('-') ? 1 : 0;
  std::size_t end = text.substr(integer).starts_with('0') ? integer + 1 : endOfDigits(integer);
  if (end == integer) return 0;
  if (end < text.size() && text[end] == '.') {
    const std::size_t fraction = end + 1;
    end = endOfDigits(fraction);
    if (end == fraction) return 0;
  }
  if (end < text.size() && (text[end] == 'e' || text[end] == 'E')) {
    const std::string_view sign = text.substr(end + 1, 1);
    const std::size_t exponent = end + (sign == "+" || sign == "-" ? 2 : 1);
    end = endOfDigits(exponent);
    if (end == exponent) return 0;
  }
  return end;
}

double nearestDouble(std::string_view number) {
  double nearest = 0;
  fast_float::from_chars(number.begin(), number.end(), nearest);
  return nearest;
}

/// Feeds a text to Boost's parser with an unsigned integer in the place of every number: the one of the same
/// bits as the nearest double. Those it reads exactly.
class ExactParser {
 public:
  [[nodiscard]] json::value parse(std::string_view text) {
    // Long lists make many small values, which go together in the end.
    parser_.reset(json::make_shared_resource<json::monotonic_resource>());
    bool isInString = false;
    std::size_t fed = 0;
    std::size_t at = 0;
    while (at < text.size() && !failure_) {
      const char c = text[at];
      if (!isInString && (c == '-' || isDigit(c))) {
        const std::size_t length = numberLength(text.substr(at));
        if (length == 0) break;  // for Boost to refuse
        feed(text.substr(fed, at - fed));
        // The blank ends the number, so that digits behind one ("01") do not lengthen it.
        feed(std::to_string(std::bit_cast<std::uint64_t>(nearestDouble(text.substr(at, length)))) + ' ');
        at += length;
        fed = at;
        continue;
      }
      if (c == '"') isInString = !isInString;
      at += isInString && c == '\\' ? 2 : 1;
    }
    feed(text.substr(fed));
    if (!failure_) parser_.finish(failure_);
    if (failure_)
      throw DecodingError("The local processor's answer is not valid JSON: " + failure_.message() + ".");
    return parser_.release();
  }

 private:
  static json::parse_options options() {
    json::parse_options options;
    options.max_depth = maximumDepth;
    return options;
  }

  void feed(std::string_view part) {
    if (!failure_) parser_.write(part.data(), part.size(), failure_);
  }

  json::stream_parser parser_{{}, options()};
  boost::system::error_code failure_;
};

}  // namespace

json::value parseJson(std::string_view text) { return ExactParser().parse(text); }

std::optional<double> numberIn(const json::value& value) {
  if (!value.is_number()) return std::nullopt;
  return std::bit_cast<double>(value.to_number<std::uint64_t>());
}

}  // namespace zunto
