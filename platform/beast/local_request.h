// A request as it goes out: its port on this computer and its bytes.
//
// Plain value; any thread.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include "platform/http.h"

namespace zunto {

struct LocalRequest {
  std::string method;
  std::uint16_t port = 80;
  std::string bytes;  ///< request line, headers and body
  std::chrono::seconds timeout{0};
};

/// `request` made ready. Throws SystemError when its address is none, or not one of 127.0.0.1, and when its
/// method or a header could not go out as it stands.
[[nodiscard]] LocalRequest localRequest(const HttpRequest& request);

}  // namespace zunto
