// What a fuzz target says when a property does not hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "async/fatal.h"

namespace zunto::fuzz {

inline std::string_view textOf(const std::uint8_t* data, std::size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

/// Ends the run with `property` when it does not hold, so that libFuzzer keeps the input.
inline void require(bool holds, const std::string& property) {
  if (!holds) fatalError("does not hold: " + property);
}

}  // namespace zunto::fuzz
