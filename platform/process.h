// Child processes.
//
// Owner: the program's entry owns the backend. Thread: main thread only, callbacks included.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "async/interface.h"
#include "platform/output_file.h"

namespace zunto {

/// What a child is made of. It inherits nothing but what stands here: standard input is the null device, no
/// other descriptor, default signal dispositions, an empty signal mask.
struct ChildSpec {
  std::filesystem::path executable;
  std::vector<std::string> arguments;  ///< without the executable itself
  std::filesystem::path workingFolder;
  std::map<std::string, std::string> environment;  ///< the whole of it
  std::shared_ptr<const OutputFile> output;        ///< standard output and standard error
};

/// A launched child. Dropping it only lets go: the backend keeps every child until it has reaped it.
class ChildProcess : public Interface {
 public:
  /// Whether the child runs at this moment, by the kernel's word. It can be false before the end notice came.
  [[nodiscard]] virtual bool isRunning() const = 0;

  /// Sends SIGINT; nothing when the child has ended.
  virtual void interrupt() = 0;

  /// Sends SIGTERM once, `delay` from now, if the child still runs then. Does not depend on the main thread
  /// nor on this object's life, and dies with the program.
  virtual void terminateAfter(std::chrono::nanoseconds delay) = 0;
};

class ProcessSpawner : public Interface {
 public:
  /// Launches a child. `ended` is called exactly once, on a turn of its own on the main thread, when the
  /// child has ended, however long that takes and whoever still holds it. Throws SystemError when the system
  /// refuses the launch; `ended` is never called then.
  [[nodiscard]] virtual std::shared_ptr<ChildProcess> launch(const ChildSpec& spec,
                                                             std::function<void()> ended) = 0;
};

/// What a command that was run to its end left.
struct CommandResult {
  int exitStatus = 0;  ///< the exit code, or 128 plus the signal that ended it
  std::string standardOutput;
};

class CommandRunner : public Interface {
 public:
  /// Runs a command to its end and blocks until then; drains its standard output meanwhile. Standard error is
  /// the null device; environment and working folder are inherited. Throws SystemError when it cannot be
  /// launched.
  [[nodiscard]] virtual CommandResult run(const std::filesystem::path& executable,
                                          const std::vector<std::string>& arguments) = 0;
};

}  // namespace zunto
