#include "protocol/records.h"

#include <algorithm>

namespace zunto {

bool isRunningStatus(std::string_view status) {
  return std::find(runningStatuses.begin(), runningStatuses.end(), status) != runningStatuses.end();
}

}  // namespace zunto
