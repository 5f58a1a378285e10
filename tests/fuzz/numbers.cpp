// Numbers of JSON: what the grammar allows and nothing else, with the very value that strtod() gives.
#include <algorithm>
#include <array>
#include <bit>
#include <cstdlib>
#include <optional>
#include <regex>
#include <string>

#include "property.h"
#include "protocol/decoding.h"
#include "protocol/json_text.h"

namespace {

using namespace zunto;

constexpr std::size_t longest = 400;  // bytes; std::regex calls itself for each

std::optional<double> numberFrom(const std::string& text) {
  try {
    const boost::json::value list = parseJson("[" + text + "]");
    return numberIn(list.get_array().at(0));
  } catch (const DecodingError&) {
    return std::nullopt;
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::regex grammar(R"(-?(0|[1-9][0-9]*)(\.[0-9]+)?([eE][+-]?[0-9]+)?)");
  std::string text(fuzz::textOf(data, std::min(size, longest)));
  // Other bytes than those of numbers are of other targets.
  for (char& c : text) c = "0123456789+-.eE"[static_cast<unsigned char>(c) % 15];
  if (text.empty()) return 0;
  const std::optional<double> ours = numberFrom(text);
  fuzz::require(ours.has_value() == std::regex_match(text, grammar),
                "a number is one by the grammar: " + text);
  if (!ours) return 0;
  const double theirs = std::strtod(text.c_str(), nullptr);
  fuzz::require(std::bit_cast<std::uint64_t>(*ours) == std::bit_cast<std::uint64_t>(theirs),
                "a number is the one that strtod() reads: " + text);
  return 0;
}
