#include "protocol/text.h"

#include <algorithm>
#include <boost/locale/utf.hpp>
#include <cstddef>

namespace zunto {

namespace {

using Utf8 = boost::locale::utf::utf_traits<char>;
using boost::locale::utf::code_point;

bool isWhiteSpaceOrLineEnd(code_point point) {
  return (point >= 0x09 && point <= 0x0D) || point == 0x20 || point == 0x85 || point == 0xA0 ||
         point == 0x1680 || (point >= 0x2000 && point <= 0x200B) || point == 0x2028 || point == 0x2029 ||
         point == 0x202F || point == 0x205F || point == 0x3000;
}

bool isAsciiLower(char c) { return c >= 'a' && c <= 'z'; }
bool isAsciiUpper(char c) { return c >= 'A' && c <= 'Z'; }

}  // namespace

bool isUtf8(std::string_view text) {
  const char* const end = text.data() + text.size();
  for (const char* next = text.data(); next != end;) {
    const code_point point = Utf8::decode(next, end);
    if (!boost::locale::utf::is_valid_codepoint(point)) return false;
  }
  return true;
}

std::string trimmed(std::string_view text) {
  std::size_t begin = text.size();
  std::size_t end = begin;
  for (const char* next = text.data(); next != text.data() + text.size();) {
    const auto start = static_cast<std::size_t>(next - text.data());
    if (isWhiteSpaceOrLineEnd(Utf8::decode(next, text.data() + text.size()))) continue;
    begin = std::min(begin, start);
    end = static_cast<std::size_t>(next - text.data());
  }
  return std::string(text.substr(begin, end - begin));
}

std::string capitalizedWords(std::string_view text) {
  std::string result(text);
  bool inWord = false;
  for (char& c : result) {
    const bool startsWord = isAsciiLower(c) || isAsciiUpper(c) || static_cast<unsigned char>(c) >= 0x80;
    const bool goesOn = inWord && (c == '\'' || (c >= '0' && c <= '9'));
    if (isAsciiLower(c) && !inWord) {
      c = static_cast<char>(c - 'a' + 'A');
    } else if (isAsciiUpper(c) && inWord) {
      c = static_cast<char>(c - 'A' + 'a');
    }
    inWord = startsWord || goesOn;
  }
  return result;
}

}  // namespace zunto
