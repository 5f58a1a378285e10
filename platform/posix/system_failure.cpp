#include "platform/posix/system_failure.h"

#include <system_error>

namespace zunto {

SystemError systemFailure(const std::string& what, int errorNumber) {
  return SystemError(what + ": " + std::generic_category().message(errorNumber) + ".");
}

SystemError saveFailure(const std::filesystem::path& destination, int errorNumber) {
  return systemFailure("The file could not be saved as " + quotedName(destination), errorNumber);
}

std::string quotedName(const std::filesystem::path& path) {
  const std::filesystem::path& named = path.has_filename() ? path : path.parent_path();
  return '"' + (named.has_filename() ? named.filename() : named).string() + '"';
}

}  // namespace zunto
