// The signals that ask a program to end.
#pragma once

#include <array>
#include <csignal>

namespace zunto {

inline constexpr std::array<int, 3> endingSignals{SIGTERM, SIGINT, SIGHUP};

/// Lets them reach this program, also where it was started with them blocked, which it inherits. Called first
/// of all, before there is another thread.
void unblockEndingSignals();

}  // namespace zunto
