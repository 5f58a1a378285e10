// The one base of every error of the program.
//
// An Error carries the sentence that the user is shown, so whoever catches it needs no table of texts. Each
// layer derives one type of its own (Cancelled here, SystemError in the platform, HelperError and
// DecodingError in the protocol). Flows catch `const Error&` and nothing wider: any other exception is a
// programming error and ends the program.
//
// Plain values; any thread.
#pragma once

#include <exception>
#include <memory>
#include <string>
#include <utility>

namespace zunto {

class Error : public std::exception {
 public:
  explicit Error(std::string message) : message_(std::make_shared<const std::string>(std::move(message))) {}

  /// The sentence for the user, UTF-8 and whole: one of the processor's may hold any character, U+0000
  /// included. Lives as long as this error.
  [[nodiscard]] const std::string& message() const noexcept { return *message_; }

  /// The same up to its first U+0000, for who knows the standard's exceptions only.
  [[nodiscard]] const char* what() const noexcept override { return message_->c_str(); }

 private:
  std::shared_ptr<const std::string> message_;  // shared, since copying an exception must not throw
};

/// What a cancelled await ends with.
class Cancelled : public Error {
 public:
  Cancelled() : Error("The operation was cancelled.") {}
};

}  // namespace zunto
