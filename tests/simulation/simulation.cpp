#include "simulation.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <utility>

#include "choice.h"

namespace zunto::simulation {

Verdict runSeed(std::uint64_t seed, const Watching& watching) {
  Verdict run;
  Random random(seed);
  Stage stage;
  stage.coverage = watching.coverage;
  stage.narrator = watching.narrator;
  const Temper temper = drawTemper(random);
  try {
    stage.launch();
    const std::size_t length = 60 + random.below(141);
    std::size_t afterEnd = random.below(6);
    while (run.schedule.size() < length) {
      if (stage.world().isEnding && afterEnd-- == 0) break;
      if (watching.tamper) watching.tamper(run.schedule.size(), stage.delegate());
      run.schedule.push_back(drawStep(stage, temper, random));
      if (watching.beginning) watching.beginning(run.schedule.back());
      stage.apply(run.schedule.back());
    }
    stage.end();
  } catch (const Fault& fault) {
    run.failure = fault.text;
  }
  run.events = stage.events();
  return run;
}

Verdict runSchedule(const Schedule& schedule, const Narrator& narrator) {
  Verdict run;
  Stage stage;
  stage.narrator = narrator;
  try {
    stage.launch();
    for (const Step& step : schedule) {
      run.schedule.push_back(step);
      stage.apply(step);
    }
    stage.end();
  } catch (const Fault& fault) {
    run.failure = fault.text;
  }
  run.events = stage.events();
  return run;
}

Schedule shrunk(const Schedule& schedule, const Trial& trial) {
  Schedule shortest = trial(schedule).value_or(schedule);
  for (std::size_t piece = std::max<std::size_t>(shortest.size() / 2, 1);;) {
    bool isShorter = false;
    for (std::size_t at = 0; at < shortest.size();) {
      const auto cut = shortest.begin() + static_cast<std::ptrdiff_t>(at);
      const std::size_t length = std::min(piece, shortest.size() - at);
      Schedule candidate(shortest.begin(), cut);
      candidate.insert(candidate.end(), cut + static_cast<std::ptrdiff_t>(length), shortest.end());
      if (auto failing = trial(candidate)) {
        shortest = *std::move(failing);
        isShorter = true;
      } else {
        at += piece;
      }
    }
    if (piece == 1 && !isShorter) return shortest;
    piece = std::max<std::size_t>(piece / 2, 1);
  }
}

std::string report(std::uint64_t seed, const Verdict& run) {
  const Schedule shortest = shrunk(run.schedule, [](const Schedule& schedule) {
    Verdict trial = runSchedule(schedule);
    return trial.failure ? std::optional(std::move(trial.schedule)) : std::nullopt;
  });
  std::string text = "seed " + std::to_string(seed) + " fails after " + std::to_string(run.schedule.size()) +
                     " steps: " + run.failure.value_or("") + "\n  The shortest trace that fails, " +
                     std::to_string(shortest.size()) + " steps:\n";
  const Verdict again =
      runSchedule(shortest, [&text](const std::string& line) { text += "    " + line + '\n'; });
  text += "    " + (again.failure ? "FAILS: " + *again.failure : "holds") + '\n';
  text += "  Again: build/gcc/tests/simulation/simulation --replay '" + encode(shortest) + "'\n";
  return text;
}

namespace {

volatile std::sig_atomic_t isBlaming = 0;
std::uint64_t blamed = 0;

void tellOfCrash(int signal) {
  constexpr std::string_view text =
      "The program crashed. Again: build/gcc/tests/simulation/simulation --seed ";
  std::array<char, 24> digits{};
  std::size_t at = digits.size();
  digits.at(--at) = '\n';
  std::uint64_t rest = blamed;
  do {
    digits.at(--at) = static_cast<char>('0' + rest % 10);
    rest /= 10;
  } while (rest != 0);
  // What cannot be written cannot be told either.
  if (write(STDERR_FILENO, text.data(), text.size()) > 0) {
    static_cast<void>(write(STDERR_FILENO, &digits.at(at), digits.size() - at) > 0);
  }
  static_cast<void>(std::signal(signal, SIG_DFL));
  static_cast<void>(std::raise(signal));
}

}  // namespace

void blameCrashesOn(std::uint64_t seed) {
  blamed = seed;
  if (std::exchange(isBlaming, 1) != 0) return;
  for (const int signal : {SIGABRT, SIGSEGV}) static_cast<void>(std::signal(signal, tellOfCrash));
}

}  // namespace zunto::simulation
