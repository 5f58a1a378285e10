// Runs schedules of the simulation, or one of them again.
//
//   simulation [--schedules N] [--from SEED]   runs N schedules, from SEED on; says the rate
//   simulation --seed SEED                     runs one and tells what happens in it
//   simulation --replay SCHEDULE               runs what a failure has printed and tells what happens in it
//
// All of it happens in processes of their own, so that a crash of the program is told and made shorter as any
// failure is. The last line of many is counted by ./test; the exit status is 0 when every schedule held.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <iostream>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "simulation.h"

namespace {

using namespace zunto::simulation;

constexpr std::uint64_t reportedFailures = 3;

/// What outlives a crash: which seed was running, and its steps so far.
struct Trail {
  std::uint64_t seed = 0;
  std::size_t steps = 0;
  std::array<Step, 1024> step = {};

  void begin(std::uint64_t newSeed) {
    seed = newSeed;
    steps = 0;
  }
  void add(const Step& next) {
    if (steps < step.size()) step.at(steps++) = next;
  }
  [[nodiscard]] Schedule schedule() const {
    return {step.begin(), step.begin() + static_cast<std::ptrdiff_t>(steps)};
  }
};

Trail& sharedTrail() {
  void* memory = mmap(nullptr, sizeof(Trail), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (memory == MAP_FAILED) throw std::bad_alloc();
  return *::new (memory) Trail;
}

enum class Errors { shown, hidden };

/// Runs `work` in a process of its own and answers its exit status; none when it crashed.
std::optional<int> inProcess(Errors errors, const std::function<int()>& work) {
  std::cout << std::flush;
  const pid_t child = fork();
  if (child < 0) return 2;
  if (child == 0) {
    if (errors == Errors::hidden) {
      const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
      if (nowhere >= 0) dup2(nowhere, STDERR_FILENO);
    }
    const int status = work();
    std::cout << std::flush;
    _exit(status);
  }
  int status = 0;
  if (waitpid(child, &status, 0) < 0 || !WIFEXITED(status)) return std::nullopt;
  return WEXITSTATUS(status);
}

void print(const std::string& line) { std::cout << line << std::endl; }

int tell(const Verdict& run) {
  print(run.failure ? "FAILS: " + *run.failure : "Both witnesses agree.");
  return run.failure ? 1 : 0;
}

/// The shortest trace that crashes as the seed of `trail` did, and how to replay it.
void tellOfCrash(std::uint64_t seed, Trail& trail) {
  static_cast<void>(inProcess(Errors::hidden, [seed, &trail] {
    trail.begin(seed);
    static_cast<void>(runSeed(seed, {.beginning = [&trail](const Step& step) { trail.add(step); }}));
    return 0;
  }));
  const Schedule shortest = shrunk(trail.schedule(), [](const Schedule& schedule) {
    const auto status = inProcess(
        Errors::hidden, [&schedule] { return static_cast<int>(runSchedule(schedule).events == 0); });
    return status ? std::nullopt : std::optional(schedule);
  });
  print("seed " + std::to_string(seed) + " crashes. The shortest trace that does, " +
        std::to_string(shortest.size()) + " steps:");
  static_cast<void>(inProcess(Errors::shown, [&shortest] { return tell(runSchedule(shortest, print)); }));
  print("CRASHES\n  Again: build/gcc/tests/simulation/simulation --replay '" + encode(shortest) + "'");
}

std::optional<std::uint64_t> numberIn(std::string_view text) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

int usage() {
  std::cerr << "simulation [--schedules N] [--from SEED] | --seed SEED | --replay SCHEDULE\n";
  return 2;
}

int runMany(std::uint64_t schedules, std::uint64_t from, Trail& trail) {
  const auto began = std::chrono::steady_clock::now();
  Coverage coverage;
  std::uint64_t failures = 0;
  std::uint64_t events = 0;
  for (std::uint64_t i = 0; i < schedules; ++i) {
    trail.begin(from + i);
    const Verdict run = runSeed(from + i, {.coverage = &coverage});
    events += run.events;
    if (run.failure && ++failures <= reportedFailures) print(report(from + i, run));
  }
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
  std::cout << schedules << " schedules from seed " << from << " with " << events << " events in "
            << took.count() << " s: " << static_cast<double>(schedules) / took.count() << " a second\n"
            << "reached: " << coverage.launches << " launches, " << coverage.givenUp << " given up, "
            << coverage.olderEnds << " ends of older children, " << coverage.foreign
            << " events under another's processor, " << coverage.analyses << " analyses, "
            << coverage.downloads << " downloads, " << coverage.cancellations << " cancellations, "
            << coverage.panels << " panels, " << coverage.saves << " saves, " << coverage.quits << " quits\n"
            << schedules - failures << " passed, " << failures << " failed\n";
  return failures == 0 ? 0 : 1;
}

int run(const std::vector<std::string_view>& arguments) {
  Trail& trail = sharedTrail();
  std::uint64_t schedules = 100000;
  std::uint64_t from = 1;
  for (std::size_t i = 0; i < arguments.size(); i += 2) {
    if (i + 1 == arguments.size()) return usage();
    const std::string_view value = arguments[i + 1];
    const std::optional<std::uint64_t> number = numberIn(value);
    if (arguments[i] == "--replay") {
      const std::optional<Schedule> schedule = decode(value);
      return schedule ? tell(runSchedule(*schedule, print)) : usage();
    }
    if (!number) return usage();
    if (arguments[i] == "--seed") {
      const auto status =
          inProcess(Errors::shown, [&number] { return tell(runSeed(*number, {.narrator = print})); });
      if (!status) tellOfCrash(*number, trail);
      return status.value_or(1);
    }
    if (arguments[i] == "--schedules") {
      schedules = *number;
    } else if (arguments[i] == "--from") {
      from = *number;
    } else {
      return usage();
    }
  }
  const auto status = inProcess(Errors::shown, [&] { return runMany(schedules, from, trail); });
  if (!status) {
    tellOfCrash(trail.seed, trail);
    print("0 passed, 1 failed");
  }
  return status.value_or(1);
}

}  // namespace

int main(int count, char** words) {
  try {
    return run({words + 1, words + count});
  } catch (const std::exception& failure) {
    std::cerr << "simulation: " << failure.what() << '\n';
    return 2;
  }
}
