#include "protocol/helper_error.h"

#include "async/fatal.h"

namespace zunto {

namespace {

const char* fixedMessage(HelperErrorCode code) {
  switch (code) {
    case HelperErrorCode::noSessionToken:
      return "The local processor did not provide a session token.";
    case HelperErrorCode::jobDidNotComplete:
      return "The job did not complete.";
    case HelperErrorCode::noDownloadableFile:
      return "The completed job did not contain a downloadable file.";
    case HelperErrorCode::unreadableResult:
      return "The local result could not be read.";
    case HelperErrorCode::processorError:
      return "The local processor returned an error.";
  }
  fatalError("a helper error has no such code");
}

}  // namespace

HelperError::HelperError(HelperErrorCode code) : Error(fixedMessage(code)), code_(code) {}

}  // namespace zunto
