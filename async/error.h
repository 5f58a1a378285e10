// The one base of every error of the program.
//
// An Error carries the sentence that the user is shown, so whoever catches it needs no table of texts. Each
// layer derives one type of its own (Cancelled here, SystemError in the platform, HelperError and
// DecodingError in the protocol). Flows catch `const Error&` and nothing wider: any other exception is a
// programming error and ends the program.
//
// Plain values; any thread.
#pragma once

#include <stdexcept>

namespace zunto {

class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;

  /// The sentence for the user, UTF-8. Lives as long as this error.
  [[nodiscard]] const char* message() const noexcept { return what(); }
};

/// What a cancelled await ends with.
class Cancelled : public Error {
 public:
  Cancelled() : Error("The operation was cancelled.") {}
};

}  // namespace zunto
