// What the desktop does for the program: web addresses and the file viewer.
//
// Owner: the program's entry; outlives the logic. Thread: main thread only.
#pragma once

#include <filesystem>
#include <string>

#include "async/interface.h"

namespace zunto {

class Workspace : public Interface {
 public:
  /// Opens `url` with the default handler for web addresses; a failure is not reported. Returns at once.
  virtual void openWebAddress(const std::string& url) = 0;

  /// Brings up the file viewer with `location` selected; a failure is not reported. Returns at once.
  virtual void reveal(const std::filesystem::path& location) = 0;
};

}  // namespace zunto
