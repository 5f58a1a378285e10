// A file that is removed when its handle is destroyed, unless it was moved to where it is wanted.
//
// Owner: whoever holds it. Thread: main thread only.
#pragma once

#include <filesystem>

#include "async/interface.h"

namespace zunto {

class TemporaryFile : public Interface {
 public:
  /// Moves the file to `destination`, which must not exist: nothing is ever replaced. Within one folder this
  /// is a rename, so no half file is ever seen there. Throws SystemError; the temporary file is then still
  /// held.
  virtual void moveTo(const std::filesystem::path& destination) = 0;
};

}  // namespace zunto
