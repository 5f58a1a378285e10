#include "tests/fakes/fake_command_runner.h"

#include <algorithm>
#include <utility>

#include "platform/system_error.h"

namespace zunto::testing {

CommandResult FakeCommandRunner::run(const std::filesystem::path& executable,
                                     const std::vector<std::string>& arguments) {
  runs_.push_back(Run{executable, arguments});
  if (!script_) return {};
  const Script script = script_;
  CommandResult result = script(Run{executable, arguments});
  result.standardOutput.resize(std::min(result.standardOutput.size(), keptOutput));
  return result;
}

void FakeCommandRunner::answer(int exitStatus, std::string standardOutput) {
  answerWith([result = CommandResult{exitStatus, std::move(standardOutput)}](const Run&) { return result; });
}

void FakeCommandRunner::refuse(std::string reason) {
  answerWith([reason = std::move(reason)](const Run& run) -> CommandResult {
    throw SystemError('"' + run.executable.filename().string() + "\" could not be started: " + reason + ".");
  });
}

}  // namespace zunto::testing
