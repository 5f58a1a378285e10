// The one way in which this program makes child processes.
//
// posix_spawn instead of fork: it costs the same however much memory the program uses, and no code of ours
// runs between the two halves. A child gets exactly the three standard descriptors, default signal
// dispositions and an empty signal mask, whatever libraries, or whoever started this program, have left open,
// ignored or blocked.
//
// Any thread.
#pragma once

#include <sys/types.h>

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/posix/descriptor.h"

namespace zunto {

struct SpawnRequest {
  std::filesystem::path executable;
  std::vector<std::string> arguments;  ///< without the executable itself, which is argument 0
  /// "NAME=value" each, the whole of it; none inherits this program's.
  std::optional<std::vector<std::string>> environment;
  std::optional<std::filesystem::path> workingFolder;  ///< none inherits this program's
  int standardOutput = -1;                             ///< an open descriptor, which stays the caller's
  std::optional<int> standardError;                    ///< the same; none is the null device
};

/// Launches a child and answers its process identifier; the caller must reap it. Throws SystemError when the
/// system refuses; there is no child then.
[[nodiscard]] pid_t spawnProcess(const SpawnRequest& request);

/// Waits for the child `pid` to end, reaps it and answers its wait status; none when it is no child of this
/// program (any more).
std::optional<int> reapProcess(pid_t pid);

/// Sees to it that an ended child stays until it is reaped by its own identifier, also when this program was
/// started with SIGCHLD ignored: the system would otherwise reap children by itself, their exit status would
/// be lost and a signal could reach a stranger that was given the same identifier. Installs no handler.
void keepEndedChildren();

/// A duplicate of `descriptor` that is close-on-exec and none of the three standard ones. Throws nothing;
/// closed, with errno set, when the system refuses.
[[nodiscard]] Descriptor duplicateAboveStandard(int descriptor);

}  // namespace zunto
