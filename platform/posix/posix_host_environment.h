// Where the program stands on a POSIX machine.
//
// Owner: the program's entry; destroying it does nothing more. Thread: main thread only. Everything is read
// once, when it is made, so that what a library changes in the environment later reaches no child.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "platform/host_environment.h"

namespace zunto {

/// The folders that each desktop finds in its own way; all absolute, without a trailing separator.
struct HostFolders {
  std::optional<std::filesystem::path> resources;
  std::filesystem::path home;
  std::filesystem::path temporary;
};

class PosixHostEnvironment final : public HostEnvironment {
 public:
  /// For a desktop that knows the folders by its own services.
  explicit PosixHostEnvironment(HostFolders folders);

  /// For a desktop without such services: the folders as findResourcesFolder, findHomeFolder and
  /// findTemporaryFolder find them.
  explicit PosixHostEnvironment(const std::filesystem::path& executableFolder);

  [[nodiscard]] std::optional<std::filesystem::path> resourcesFolder() const override;
  [[nodiscard]] std::filesystem::path homeFolder() const override;
  [[nodiscard]] std::filesystem::path temporaryFolder() const override;
  [[nodiscard]] std::map<std::string, std::string> environment() const override;
  [[nodiscard]] int processIdentifier() const override;

 private:
  std::map<std::string, std::string> environment_;
  HostFolders folders_;
};

/// The folder of the running executable, links to it followed. Throws SystemError.
[[nodiscard]] std::filesystem::path findExecutableFolder();

/// "resources" beside the executable (build tree, archive), else "../share/zunto-helper" from its folder
/// (installed); none when neither is a folder.
[[nodiscard]] std::optional<std::filesystem::path> findResourcesFolder(
    const std::filesystem::path& executableFolder);

/// $HOME of `environment`, else the home folder of the account, else the root folder.
[[nodiscard]] std::filesystem::path findHomeFolder(const std::map<std::string, std::string>& environment);

/// $TMPDIR of `environment`, else /tmp.
[[nodiscard]] std::filesystem::path findTemporaryFolder(
    const std::map<std::string, std::string>& environment);

/// The environment of this program at this moment. Of a name that occurs twice the first counts, as for the
/// system's own look-up.
[[nodiscard]] std::map<std::string, std::string> readEnvironment();

}  // namespace zunto
