// The end of the program for states that a correct program cannot reach: going on would make the status lie.
#pragma once

#include <string_view>

namespace zunto {

/// Writes `reason` as one line to standard error and aborts. Any thread.
[[noreturn]] void fatalError(std::string_view reason) noexcept;

}  // namespace zunto
