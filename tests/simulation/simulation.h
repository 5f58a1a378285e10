// A run of the whole program in a world of its own, with everything that happens decided by one number.
//
// HelperDelegate and its import window run as the program's entry makes them. A seed makes a schedule while
// it runs: what the user does, what the processor, the machine and the disk do, how each request, panel and
// alert ends, when the main loop gets to run and which of several due timers it calls first. After every
// event, be it a user's deed, one turn or one timer, two witnesses look at the program:
//
//   invariants.h  rules that hold whatever has happened
//   model.h       a model of the flows as tables of states, which must agree in every field, control and deed
//
// The same seed, or the same schedule, always runs alike. What fails is made shorter by leaving steps out as
// long as it still fails, and is told with the command that runs it again:
//
//   build/gcc/tests/simulation/simulation --replay SCHEDULE
//
// Thread: one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "app/helper_delegate.h"
#include "schedule.h"
#include "stage.h"

namespace zunto::simulation {

/// How one run went.
struct Verdict {
  Schedule schedule;  ///< up to the failure
  std::size_t events = 0;
  std::optional<std::string> failure;  ///< in words; none when both witnesses agreed throughout
};

/// What a run may be given besides.
struct Watching {
  Coverage* coverage = nullptr;
  /// Called before every step: a test changes what the program shows, to see that the witnesses see it.
  std::function<void(std::size_t step, const HelperDelegate& delegate)> tamper = {};
  Narrator narrator = {};
  std::function<void(const Step& step)> beginning = {};  ///< told of every step before it is taken
};

[[nodiscard]] Verdict runSeed(std::uint64_t seed, const Watching& watching = {});
[[nodiscard]] Verdict runSchedule(const Schedule& schedule, const Narrator& narrator = {});

/// Answers the steps up to the failure when the schedule fails.
using Trial = std::function<std::optional<Schedule>(const Schedule&)>;

/// The shortest schedule found that still fails, in whatever way.
[[nodiscard]] Schedule shrunk(const Schedule& schedule, const Trial& trial);

/// All that a reader needs of a failed run: the fault, the shortest trace and the command that replays it.
[[nodiscard]] std::string report(std::uint64_t seed, const Verdict& run);

/// From now on a crash of this process says on standard error how to run `seed` again, which then finds the
/// shortest trace. To be told of every seed before it runs.
void blameCrashesOn(std::uint64_t seed);

}  // namespace zunto::simulation
