// The readiness step: makes sure that the local processor runs and obtains the session token of its run.
//
// Owner: the import window's controller, whose tasks keep it alive while a step runs. Thread: main thread
// only. Overlapping steps are independent: each writes the token it received, and the last to end sets the
// status.
#pragma once

#include <functional>
#include <string>

#include "async/interface.h"
#include "async/task.h"
#include "protocol/processor_client.h"

namespace zunto {

/// Answers whether a healthy processor runs, after starting one where none did. Never fails.
using EnsureHelper = std::function<Task<bool>()>;

/// All that the step needs of the form.
class ReadinessForm : public Interface {
 public:
  /// Shows the form as busy or idle, with `status` in its status line.
  virtual void setBusy(bool busy, const std::string& status) = 0;

  /// Shows what stands in the status line, until the next status, as the problem that it tells of.
  virtual void markProblem() = 0;
};

class Readiness {
 public:
  /// The references must outlive this object. `sessionToken` is written by a successful step only.
  Readiness(EnsureHelper ensureHelper, const ProcessorClient& client, std::string& sessionToken,
            ReadinessForm& form);

  /// Runs one step. Never fails: its outcome stands in the token and in the form, which is idle at the end.
  [[nodiscard]] Task<void> prepareSession();

 private:
  [[nodiscard]] Task<std::string> fetchToken() const;

  EnsureHelper ensureHelper_;
  const ProcessorClient& client_;
  std::string& sessionToken_;
  ReadinessForm& form_;
};

}  // namespace zunto
