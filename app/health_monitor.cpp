// Asks the processor whether it is up, and shows the answer.
#include <string>
#include <vector>

#include "app/helper_delegate.h"
#include "app/helper_status.h"
#include "protocol/decoding.h"

namespace zunto {

Task<bool> HelperDelegate::probeHealth() {
  const std::vector<std::string> arguments = {
      "--fail", "--silent", "--max-time", "1",
      addresses_.helperBaseURL.appendingPath("health").absoluteString()};
  try {
    const CommandResult answer = capabilities_.commandRunner.run("/usr/bin/curl", arguments);
    co_return answer.exitStatus == 0 && isHealthyAnswer(answer.standardOutput);
  } catch (const SystemError&) {
    co_return false;
  }
}

// Ticks are skipped during a start sequence, so that it alone reports while the child comes up.
Task<void> HelperDelegate::refreshHealth() {
  if (isStarting) co_return;
  const bool healthy = co_await probeHealth();
  updateStatus(healthy, healthy && ownChildRuns());
}

void HelperDelegate::updateStatus(bool healthy, bool owned) {
  const StatusTexts& texts = textsOf(helperStatus(healthy, owned));
  if (statusMenuItem) statusMenuItem->setTitle(std::string(texts.statusLine));
  if (toggleMenuItem) {
    toggleMenuItem->setTitle(std::string(texts.toggleTitle));
    toggleMenuItem->setEnabled(texts.toggleEnabled);
  }
  if (statusItem) statusItem->setButtonTitle(std::string(texts.barTitle));
}

}  // namespace zunto
