// What stands on the processor's port in a test, seen through the curl program: the script says what answers,
// and curl's own rules decide what the probe is told.
//
// Owner: the test. Thread: main thread only.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "tests/fakes/fake_command_runner.h"

namespace zunto::testing {

/// One answer to GET /health.
struct HealthAnswer {
  int status = 200;
  std::string body = R"({"status":"ok"})";
  std::chrono::nanoseconds delay{0};
  bool isEndless = false;  ///< the connection stays open behind the body, as if more were to come
};

class ScriptedHealth {
 public:
  /// None: nobody listens.
  using Script = std::function<std::optional<HealthAnswer>()>;

  explicit ScriptedHealth(FakeCommandRunner& commands) : commands_(commands) { nobodyListens(); }

  void answerBy(Script script) {
    commands_.answerWith(
        [script = std::move(script)](const FakeCommandRunner::Run& run) { return curl(run, script); });
  }
  void answer(HealthAnswer answer) {
    answerBy([answer = std::move(answer)] { return std::optional(answer); });
  }
  void answerHealthy() { answer({}); }
  void nobodyListens() {
    answerBy([] { return std::nullopt; });
  }
  /// Nobody listens for the next `failures` probes, then a healthy processor does.
  void answerHealthyAfter(int failures) {
    answerBy([left = std::make_shared<int>(failures)] {
      return (*left)-- > 0 ? std::nullopt : std::optional(HealthAnswer{});
    });
  }

  /// How many probes there were.
  [[nodiscard]] std::size_t probes() const { return commands_.runs().size(); }

 private:
  static constexpr int couldNotConnect = 7;
  static constexpr int httpError = 22;
  static constexpr int timedOut = 28;

  static CommandResult curl(const FakeCommandRunner::Run& run, const Script& script) {
    const auto& arguments = run.arguments;
    const auto flag = [&](const std::string& name) {
      return std::find(arguments.begin(), arguments.end(), name);
    };
    if (arguments.empty() || arguments.back() != "http://127.0.0.1:43127/health")
      return {couldNotConnect, {}};
    const std::optional<HealthAnswer> answer = script();
    if (!answer) return {couldNotConnect, {}};
    const auto limit = flag("--max-time");
    if (limit != arguments.end() && answer->delay > std::chrono::seconds(std::stoi(*std::next(limit)))) {
      return {timedOut, {}};
    }
    if (answer->status >= 400 && flag("--fail") != arguments.end()) return {httpError, {}};
    return {answer->isEndless ? timedOut : 0, answer->body};
  }

  FakeCommandRunner& commands_;
};

}  // namespace zunto::testing
