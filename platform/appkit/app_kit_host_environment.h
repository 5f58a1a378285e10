// The main bundle's resources, the user's folders and this process. Owner: the program's entry. Thread: main
// thread only.
#pragma once

#include "platform/host_environment.h"

namespace zunto {

class AppKitHostEnvironment final : public HostEnvironment {
 public:
  [[nodiscard]] std::optional<std::filesystem::path> resourcesFolder() const override;
  [[nodiscard]] std::filesystem::path homeFolder() const override;
  [[nodiscard]] std::filesystem::path temporaryFolder() const override;
  [[nodiscard]] std::map<std::string, std::string> environment() const override;
  [[nodiscard]] int processIdentifier() const override;
};

}  // namespace zunto
