// Short commands that are run to their end.
//
// Owner: the program's entry; destroying it does nothing more. Thread: main thread only, which it blocks
// while a command runs, and while a process that the command left behind still holds its standard output
// open.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include "platform/process.h"

namespace zunto {

class PosixCommandRunner final : public CommandRunner {
 public:
  /// As much standard output as is kept of one command, in bytes; the rest is drained and dropped.
  static constexpr std::size_t keptOutput = std::size_t{1} << 20;

  PosixCommandRunner();

  [[nodiscard]] CommandResult run(const std::filesystem::path& executable,
                                  const std::vector<std::string>& arguments) override;
};

}  // namespace zunto
