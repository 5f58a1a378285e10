#include "schedule.h"

#include <array>

namespace zunto::simulation {

namespace {

constexpr std::array<std::string_view, static_cast<std::size_t>(Deed::count)> names = {
    "turn",   "settle", "timer", "pass",  "menu",   "link", "click",   "edit", "close",     "pasteboard",
    "answer", "panel",  "alert", "child", "notice", "port", "machine", "disk", "endSession"};

constexpr std::string_view digits = "0123456789abcdef";
constexpr std::size_t charactersPerStep = 5;

void appendByte(std::string& text, std::uint8_t byte) { text += {digits[byte >> 4U], digits[byte & 15U]}; }

std::optional<std::uint8_t> byteIn(std::string_view text) {
  const std::size_t high = digits.find(text[0]);
  const std::size_t low = digits.find(text[1]);
  if (high == std::string_view::npos || low == std::string_view::npos) return std::nullopt;
  return static_cast<std::uint8_t>(high * 16 + low);
}

}  // namespace

std::string_view nameOf(Deed deed) { return names.at(static_cast<std::size_t>(deed)); }

std::string encode(const Schedule& schedule) {
  std::string text;
  text.reserve(schedule.size() * charactersPerStep);
  for (const Step& step : schedule) {
    text += static_cast<char>('A' + static_cast<int>(step.deed));
    appendByte(text, step.which);
    appendByte(text, step.how);
  }
  return text;
}

std::optional<Schedule> decode(std::string_view text) {
  if (text.size() % charactersPerStep != 0) return std::nullopt;
  Schedule schedule;
  for (; !text.empty(); text.remove_prefix(charactersPerStep)) {
    const int deed = text[0] - 'A';
    const std::optional<std::uint8_t> which = byteIn(text.substr(1));
    const std::optional<std::uint8_t> how = byteIn(text.substr(3));
    if (deed < 0 || deed >= static_cast<int>(Deed::count) || !which || !how) return std::nullopt;
    schedule.push_back({static_cast<Deed>(deed), *which, *how});
  }
  return schedule;
}

}  // namespace zunto::simulation
