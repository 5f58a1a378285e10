#include "app/helper_status.h"

#include "async/fatal.h"

namespace zunto {

namespace {

constexpr std::string_view readyStatusLine = "ZUNTO Helper Ready · 127.0.0.1:43127";
constexpr std::string_view healthyBarTitle = "Z/UNTO ●";

constexpr StatusTexts readyTexts{.statusLine = readyStatusLine,
                                 .toggleTitle = "Stop Helper",
                                 .toggleEnabled = true,
                                 .barTitle = healthyBarTitle};
constexpr StatusTexts foreignTexts{.statusLine = readyStatusLine,
                                   .toggleTitle = "Helper managed by another process",
                                   .toggleEnabled = false,
                                   .barTitle = healthyBarTitle};
constexpr StatusTexts stoppedTexts{.statusLine = "ZUNTO Helper Stopped",
                                   .toggleTitle = "Start Helper",
                                   .toggleEnabled = true,
                                   .barTitle = idleBarTitle};

}  // namespace

HelperStatus helperStatus(bool healthy, bool owned) {
  if (!healthy) return HelperStatus::stopped;
  return owned ? HelperStatus::ready : HelperStatus::foreign;
}

const StatusTexts& textsOf(HelperStatus status) {
  switch (status) {
    case HelperStatus::ready:
      return readyTexts;
    case HelperStatus::foreign:
      return foreignTexts;
    case HelperStatus::stopped:
      return stoppedTexts;
    case HelperStatus::starting:
      break;
  }
  fatalError("the starting state has no texts of its own");
}

}  // namespace zunto
