// A machine as a test describes it: every answer is a field that the test may set.
//
// Owner: the test. Thread: main thread only.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>

#include "platform/host_environment.h"

namespace zunto::testing {

class FakeHostEnvironment final : public HostEnvironment {
 public:
  std::optional<std::filesystem::path> resources = "/app/resources";
  std::filesystem::path home = "/home/user";
  std::filesystem::path temporary = "/tmp";
  std::map<std::string, std::string> variables;
  int identifier = 4242;

  [[nodiscard]] std::optional<std::filesystem::path> resourcesFolder() const override { return resources; }
  [[nodiscard]] std::filesystem::path homeFolder() const override { return home; }
  [[nodiscard]] std::filesystem::path temporaryFolder() const override { return temporary; }
  [[nodiscard]] std::map<std::string, std::string> environment() const override { return variables; }
  [[nodiscard]] int processIdentifier() const override { return identifier; }
};

}  // namespace zunto::testing
