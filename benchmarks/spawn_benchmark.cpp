// What running one short command costs the main thread, the command's own time apart: the helper's command
// runner beside a bare posix_spawn of the same program with its output drained.
#include <benchmark/benchmark.h>

#include "benchmarks/bare_spawn.h"
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
    if (spawnBare(program, {"--fail", "--silent"}) != 0) state.SkipWithError("did not run");
  }
}
BENCHMARK(BM_BareSpawn)->UseRealTime()->Unit(benchmark::kMicrosecond);

}  // namespace
