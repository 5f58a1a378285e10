// The general pasteboard. Owner: the program's entry. Thread: main thread only.
#pragma once

#include "platform/pasteboard.h"

namespace zunto {

class AppKitPasteboard final : public Pasteboard {
 public:
  [[nodiscard]] std::optional<std::string> plainText() const override;
};

}  // namespace zunto
