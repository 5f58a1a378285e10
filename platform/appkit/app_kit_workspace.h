// The shared workspace: web addresses and the file viewer. Owner: the program's entry. Thread: main thread
// only.
#pragma once

#include "platform/workspace.h"

namespace zunto {

class AppKitWorkspace final : public Workspace {
 public:
  void openWebAddress(const std::string& url) override;
  void reveal(const std::filesystem::path& location) override;
};

}  // namespace zunto
