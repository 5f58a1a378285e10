#include "platform/http.h"

#include <algorithm>

namespace zunto {

namespace {

char lowered(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

bool equalIgnoringCase(std::string_view left, std::string_view right) {
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](char a, char b) { return lowered(a) == lowered(b); });
}

}  // namespace

std::optional<std::string> HttpResponseHead::header(std::string_view name) const {
  for (const auto& [headerName, value] : headers) {
    if (equalIgnoringCase(headerName, name)) return value;
  }
  return std::nullopt;
}

}  // namespace zunto
