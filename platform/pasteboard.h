// The general pasteboard. Owner: the program's entry; outlives the logic. Thread: main thread only.
#pragma once

#include <optional>
#include <string>

#include "async/interface.h"

namespace zunto {

class Pasteboard : public Interface {
 public:
  /// Its plain text, UTF-8; none when it holds no text.
  [[nodiscard]] virtual std::optional<std::string> plainText() const = 0;
};

}  // namespace zunto
