// Sentences for the user about what the system refused.
#pragma once

#include <filesystem>
#include <string>

#include "platform/system_error.h"

namespace zunto {

/// "<what>: <the system's words for errorNumber>.", where `what` is the beginning of a sentence that says
/// what could not be done and `errorNumber` is an errno value.
[[nodiscard]] SystemError systemFailure(const std::string& what, int errorNumber);

/// The same for a file that could not be saved at `destination`.
[[nodiscard]] SystemError saveFailure(const std::filesystem::path& destination, int errorNumber);

/// The last component of `path` in quotation marks, a trailing separator ignored; the whole path when there
/// is none, as for the root folder.
[[nodiscard]] std::string quotedName(const std::filesystem::path& path);

}  // namespace zunto
