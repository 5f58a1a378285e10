// What happens in one run of the simulation, step by step, as plain values: what the user does, what the
// world does, and when the main loop gets to run.
//
// A step names its object by number and takes the number round what there is ("the request 7" of three open
// ones is the second), and a step that finds nothing to do does nothing. So any part of a schedule is a
// schedule too, which is what shrinking lives by.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zunto::simulation {

enum class Deed : std::uint8_t {
  turn,        ///< the main loop runs one queued turn
  settle,      ///< it runs turns until none is queued
  timer,       ///< time passes to the next timer, or a while beyond, and one of those due is called
  pass,        ///< a span of time passes, with everything that falls due in it
  menu,        ///< the user chooses an item of the status menu
  link,        ///< another program hands over a link
  click,       ///< the user clicks a button of the window
  edit,        ///< the user types, ticks or selects something in the window
  close,       ///< the user closes the window
  pasteboard,  ///< something else is copied
  answer,      ///< an open request ends
  panel,       ///< the user ends the save panel
  alert,       ///< the user ends the alert
  child,       ///< a processor serves, hangs, ends or changes its manners
  notice,      ///< the system tells of a child's end
  port,        ///< another program's processor comes, goes or changes its manners
  machine,     ///< components, log and launches work or do not
  disk,        ///< places to save in work or do not
  endSession,  ///< the desktop ends the program
  count
};

struct Step {
  Deed deed = Deed::turn;
  std::uint8_t which = 0;
  std::uint8_t how = 0;
  bool operator==(const Step&) const = default;
};

using Schedule = std::vector<Step>;

/// One letter and four digits a step, fit for a command line.
[[nodiscard]] std::string encode(const Schedule& schedule);

/// None when `text` encodes no schedule.
[[nodiscard]] std::optional<Schedule> decode(std::string_view text);

[[nodiscard]] std::string_view nameOf(Deed deed);

/// Numbers that one seed decides, the same on every machine (splitmix64).
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next() {
    state_ += 0x9E3779B97F4A7C15U;
    std::uint64_t z = state_;
    z = (z ^ (z >> 30U)) * 0xBF58476D1CE4E5B9U;
    z = (z ^ (z >> 27U)) * 0x94D049BB133111EBU;
    return z ^ (z >> 31U);
  }
  /// From 0 to `bound` - 1; `bound` is not 0.
  std::size_t below(std::size_t bound) { return static_cast<std::size_t>(next() % bound); }
  [[nodiscard]] bool oneIn(std::size_t n) { return below(n) == 0; }
  [[nodiscard]] bool percent(std::size_t share) { return below(100) < share; }

 private:
  std::uint64_t state_;
};

}  // namespace zunto::simulation
