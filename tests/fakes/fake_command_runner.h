// Runs commands that a test scripts. Without a script every command exits with 0 and prints nothing.
//
// Owner: the test. Thread: main thread only.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/process.h"

namespace zunto::testing {

class FakeCommandRunner final : public CommandRunner {
 public:
  struct Run {
    std::filesystem::path executable;
    std::vector<std::string> arguments;
  };
  /// Answers one command; may throw SystemError as a launch that the system refuses.
  using Script = std::function<CommandResult(const Run&)>;

  /// As much standard output as is kept of one command, in bytes; the rest is drained and dropped.
  static constexpr std::size_t keptOutput = std::size_t{1} << 20;

  [[nodiscard]] CommandResult run(const std::filesystem::path& executable,
                                  const std::vector<std::string>& arguments) override;

  /// From now on every command is answered by `script`.
  void answerWith(Script script) { script_ = std::move(script); }
  /// From now on every command exits with `exitStatus` after printing `standardOutput`.
  void answer(int exitStatus, std::string standardOutput);
  /// From now on no command can be launched, for `reason` (such as "No such file or directory").
  void refuse(std::string reason);

  /// Every command that was asked for, oldest first, refused ones included.
  [[nodiscard]] const std::vector<Run>& runs() const { return runs_; }

 private:
  Script script_;
  std::vector<Run> runs_;
};

}  // namespace zunto::testing
