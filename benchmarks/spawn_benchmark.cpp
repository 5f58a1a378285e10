// What running one short command costs the main thread, the command's own time apart: the helper's command
// runner beside a bare posix_spawn of the same program with its output drained.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>

#include "platform/posix/posix_command_runner.h"

namespace {

constexpr const char* program = "/usr/bin/true";

void BM_HelperCommand(benchmark::State& state) {
  zunto::PosixCommandRunner runner;
  for (auto _ : state) benchmark::DoNotOptimize(runner.run(program, {"--fail", "--silent"}));
}
BENCHMARK(BM_HelperCommand)->UseRealTime()->Unit(benchmark::kMicrosecond);

void BM_BareSpawn(benchmark::State& state) {
  for (auto _ : state) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) state.SkipWithError("no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
    std::array<char*, 4> arguments{const_cast<char*>(program), const_cast<char*>("--fail"),
                                   const_cast<char*>("--silent"), nullptr};
    pid_t pid = 0;
    if (::posix_spawn(&pid, program, &actions, nullptr, arguments.data(), environ) != 0) {
      state.SkipWithError("not started");
    }
    posix_spawn_file_actions_destroy(&actions);
    ::close(ends[1]);
    std::array<char, 4096> buffer{};
    while (::read(ends[0], buffer.data(), buffer.size()) > 0) continue;
    ::close(ends[0]);
    int status = 0;
    ::waitpid(pid, &status, 0);
    benchmark::DoNotOptimize(status);
  }
}
BENCHMARK(BM_BareSpawn)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
