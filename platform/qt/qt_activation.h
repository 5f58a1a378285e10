// The desktop's permission to come forward, for what the user does with a part of the program that the
// desktop shows: under Wayland a window gets the focus with such a token only.
//
// Owner: whoever does what the user asked for, on the stack. Thread: main thread only.
#pragma once

#include <string>

namespace zunto {

class QtActivation {
 public:
  /// A window that asks for the focus while this object lives has the token; one is enough for one window. An
  /// empty token, and any where there is no Wayland, changes nothing.
  explicit QtActivation(const std::string& token);
  QtActivation(const QtActivation&) = delete;
  QtActivation& operator=(const QtActivation&) = delete;
  /// What was not used does not serve another window later: it would be refused then.
  ~QtActivation();

  /// Whether a window that asks for the focus now has a token.
  [[nodiscard]] static bool isGranted();

 private:
  bool isSet_;
};

}  // namespace zunto
