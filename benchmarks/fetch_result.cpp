// fetch_result URL FILE: fetches URL into FILE as saving a result does: the helper's HTTP session writes a
// temporary file in FILE's folder, which is then moved. Prints by how many KiB the resident memory has grown
// meanwhile.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string>
#include <utility>
#include <variant>

#include "platform/beast/beast_http_session.h"
#include "tests/fakes/virtual_clock.h"

namespace {

using namespace zunto;

long residentKib() {
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmHWM:")) return std::stol(line.substr(6));
  }
  return 0;
}

/// A main loop that runs turns as they come and sleeps between them.
class WaitingClock final : public Clock {
 public:
  [[nodiscard]] std::chrono::nanoseconds now() const override { return clock_.now(); }
  [[nodiscard]] std::unique_ptr<Timer> callLater(std::chrono::nanoseconds delay, Turn turn) override {
    return clock_.callLater(delay, std::move(turn));
  }
  void post(Turn turn) override {
    clock_.post(std::move(turn));
    ++posted_;
    posted_.notify_one();
  }
  void runUntil(const bool& reached) {
    for (int seen = posted_; !reached; seen = posted_) {
      clock_.runTurns();
      if (!reached) posted_.wait(seen);
    }
  }

 private:
  testing::VirtualClock clock_;
  std::atomic<int> posted_ = 0;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: fetch_result URL FILE\n");
    return 2;
  }
  const std::filesystem::path file(argv[2]);
  WaitingClock clock;
  BeastHttpSession session(clock);
  const long before = residentKib();
  bool ended = false;
  int status = 0;
  HttpRequest request;
  request.url = argv[1];
  const auto transfer =
      session.download(std::move(request), file.parent_path(), [&](Outcome<HttpDownload> outcome) {
        ended = true;
        if (const auto* fetched = std::get_if<HttpDownload>(&outcome)) {
          std::filesystem::remove(file);
          fetched->file->moveTo(file);
        } else {
          status = 1;
        }
      });
  clock.runUntil(ended);
  std::printf("%ld\n", residentKib() - before);
  return status;
}
