// A pasteboard whose content is a field that the test may set.
//
// Owner: the test. Thread: main thread only.
#pragma once

#include <optional>
#include <string>

#include "platform/pasteboard.h"

namespace zunto::testing {

class FakePasteboard final : public Pasteboard {
 public:
  std::optional<std::string> text;  ///< none: there is no text on it

  [[nodiscard]] std::optional<std::string> plainText() const override { return text; }
};

}  // namespace zunto::testing
