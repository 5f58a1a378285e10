#include "import/media_texts.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "async/fatal.h"

namespace zunto {

namespace {

constexpr std::size_t longestFileName = 255;  // bytes, of nearly every file system
constexpr std::size_t longestExtension = 32;  // bytes, the dot included; what is longer is no extension

bool isContinuationByte(char c) { return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U; }

std::string_view lastPathComponent(std::string_view path) {
  while (path.ends_with('/')) path.remove_suffix(1);
  return path.substr(path.rfind('/') + 1);  // npos + 1 is 0
}

/// Without U+0000 to U+001F, U+007F and U+0080 to U+009F.
std::string withoutControls(std::string_view text) {
  std::string kept;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte < 0x20 || byte == 0x7F) continue;
    if (byte == 0xC2 && i + 1 < text.size() && static_cast<unsigned char>(text[i + 1]) < 0xA0) {
      ++i;
      continue;
    }
    kept += text[i];
  }
  return kept;
}

std::string cutAtCharacter(const std::string& text, std::size_t bytes) {
  std::size_t end = bytes;
  while (end > 0 && isContinuationByte(text[end])) --end;
  return text.substr(0, end);
}

std::string shortened(const std::string& name) {
  if (name.size() <= longestFileName) return name;
  const std::size_t dot = std::min(name.rfind('.'), name.size());
  const bool hasExtension = name.size() - dot <= longestExtension;
  const std::string extension = hasExtension ? name.substr(dot) : std::string();
  return cutAtCharacter(name, longestFileName - extension.size()) + extension;
}

}  // namespace

std::string subtitleLabel(const SubtitleTrack& track) {
  const std::string base = track.label.value_or(track.language.value_or(track.id));
  const bool original = track.original.value_or(false);
  const bool automatic = track.automatic.value_or(false);
  if (original) return base + (automatic ? " — Original · Auto-generated" : " — Original · Recommended");
  return base + (automatic ? " — Auto-generated" : " — Manual");
}

std::string formatDuration(double duration) {
  constexpr double limit = 9223372036854775808.0;  // 2 to the 63rd
  const double truncated = std::trunc(duration);
  if (!std::isfinite(duration) || truncated < -limit || truncated >= limit) {
    fatalError("a media duration does not fit a whole number of seconds");
  }
  const auto seconds = static_cast<std::int64_t>(truncated);
  std::array<char, 48> text{};
  const int length =
      std::snprintf(text.data(), text.size(), "%lld:%02lld", static_cast<long long>(seconds / 60),
                    static_cast<long long>(seconds % 60));
  return {text.data(), static_cast<std::size_t>(length)};
}

std::string suggestedFileName(const std::optional<std::string>& filename) {
  std::string name = shortened(withoutControls(lastPathComponent(filename.value_or(std::string()))));
  if (name.empty() || name == "." || name == "..") return "ZUNTO-download";
  return name;
}

}  // namespace zunto
