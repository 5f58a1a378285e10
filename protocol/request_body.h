// JSON bodies of requests: flat maps of strings and Booleans. Plain values; any thread.
#pragma once

#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "async/error.h"

namespace zunto {

/// A body that cannot be written as JSON.
class EncodingError : public Error {
 public:
  using Error::Error;
};

using RequestValue = std::variant<std::string, bool>;

/// In the order in which the keys were added; a key stands once.
using RequestBody = std::vector<std::pair<std::string, RequestValue>>;

/// `body` as one compact JSON object. Throws EncodingError when a text in it is not UTF-8.
[[nodiscard]] std::string serialize(const RequestBody& body);

}  // namespace zunto
