// The states that the status menu shows. None is stored: a state is what the titles say.
#pragma once

#include <string_view>

namespace zunto {

enum class HelperStatus {
  starting,  ///< the menu was built, or a child was launched
  ready,     ///< this program's own processor answers healthy
  foreign,   ///< another program's processor answers healthy
  stopped    ///< nothing answers healthy
};

/// What a state that a health probe has found writes into the menu.
struct StatusTexts {
  std::string_view statusLine;
  std::string_view toggleTitle;
  bool toggleEnabled;
  std::string_view barTitle;
};

inline constexpr std::string_view startingStatusLine = "Starting ZUNTO Helper…";
inline constexpr std::string_view idleBarTitle = "Z/UNTO";

/// `owned` says whether this program's own child runs; it counts only when `healthy`.
[[nodiscard]] HelperStatus helperStatus(bool healthy, bool owned);

/// Fatal for `starting`, which writes its status line alone.
[[nodiscard]] const StatusTexts& textsOf(HelperStatus status);

}  // namespace zunto
