// The failures that the helper raises itself. Plain value; any thread.
#pragma once

#include <string_view>

#include "async/error.h"

namespace zunto {

enum class HelperErrorCode {
  noSessionToken = 1,      ///< readiness
  jobDidNotComplete = 2,   ///< polling; the job's own message when it has one
  noDownloadableFile = 3,  ///< result
  unreadableResult = 4,    ///< result fetch
  processorError = 5,      ///< an answer that reports failure; the processor's own message when it has one
};

class HelperError : public Error {
 public:
  static constexpr std::string_view domain = "ZUNTO";

  /// With the fixed message of `code`.
  explicit HelperError(HelperErrorCode code);

  /// With a message of the processor.
  HelperError(HelperErrorCode code, const std::string& message) : Error(message), code_(code) {}

  [[nodiscard]] HelperErrorCode code() const { return code_; }

 private:
  HelperErrorCode code_;
};

}  // namespace zunto
