// Where the program stands on this machine: folders, environment, own process.
//
// Owner: the program's entry; outlives the logic. Thread: main thread only.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "async/interface.h"

namespace zunto {

class HostEnvironment : public Interface {
 public:
  /// The application's resources folder (absolute); none when there is none.
  [[nodiscard]] virtual std::optional<std::filesystem::path> resourcesFolder() const = 0;

  /// The user's home folder (absolute).
  [[nodiscard]] virtual std::filesystem::path homeFolder() const = 0;

  /// The user's folder for temporary files (absolute, without a trailing separator).
  [[nodiscard]] virtual std::filesystem::path temporaryFolder() const = 0;

  /// The environment variables that this program was started with, and what its entry has made of them.
  [[nodiscard]] virtual std::map<std::string, std::string> environment() const = 0;

  /// This program's process identifier.
  [[nodiscard]] virtual int processIdentifier() const = 0;
};

}  // namespace zunto
