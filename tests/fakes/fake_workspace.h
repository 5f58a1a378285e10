// A desktop that opens nothing and remembers what it was asked to open.
//
// Owner: the test. Thread: main thread only.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "platform/workspace.h"

namespace zunto::testing {

class FakeWorkspace final : public Workspace {
 public:
  void openWebAddress(const std::string& url) override { openedAddresses_.push_back(url); }
  void reveal(const std::filesystem::path& location) override { revealedLocations_.push_back(location); }

  /// Oldest first.
  [[nodiscard]] const std::vector<std::string>& openedAddresses() const { return openedAddresses_; }
  [[nodiscard]] const std::vector<std::filesystem::path>& revealedLocations() const {
    return revealedLocations_;
  }

 private:
  std::vector<std::string> openedAddresses_;
  std::vector<std::filesystem::path> revealedLocations_;
};

}  // namespace zunto::testing
