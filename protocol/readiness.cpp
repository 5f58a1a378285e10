#include "protocol/readiness.h"

#include <optional>
#include <utility>

#include "protocol/helper_error.h"

namespace zunto {

Readiness::Readiness(EnsureHelper ensureHelper, const ProcessorClient& client, std::string& sessionToken,
                     ReadinessForm& form)
    : ensureHelper_(std::move(ensureHelper)), client_(client), sessionToken_(sessionToken), form_(form) {}

Task<void> Readiness::prepareSession() {
  form_.setBusy(true, "Starting the local processor…");
  const bool isRunning = co_await ensureHelper_();
  if (!isRunning) {
    form_.setBusy(false, "ZUNTO Helper could not start. Use the menu bar log for details.");
    form_.markProblem();
    co_return;
  }
  try {
    sessionToken_ = co_await fetchToken();
    form_.setBusy(false, "Ready. Processing and browser access stay on this Mac.");
  } catch (const Error& failure) {
    form_.setBusy(false, failure.message());
    form_.markProblem();
  }
}

Task<std::string> Readiness::fetchToken() const {
  const HttpResponseHead head = co_await client_.fetchHealth();
  std::optional<std::string> token = head.header("X-ZUNTO-Session-Token");
  if (!head.status || !token || token->empty()) throw HelperError(HelperErrorCode::noSessionToken);
  co_return *std::move(token);
}

}  // namespace zunto
