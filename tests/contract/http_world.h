// What the cases of the HTTP contract need of the world around a session, once scripted and once real.
//
// Owner: the case. Thread: the test's thread.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "async/clock.h"
#include "platform/beast/body_pump.h"
#include "platform/http.h"
#include "tests/fakes/scripted_http_session.h"
#include "tests/fakes/virtual_clock.h"

namespace zunto {

/// The name by which test reports call the way in which a body comes into a file.
inline void PrintTo(BodyPump::Method method, std::ostream* out) {
  *out << (method == BodyPump::Method::splice ? "splice" : "copy");
}

}  // namespace zunto

namespace zunto::testing {

/// A main loop that a test runs by hand and that counts the turns queued so far.
class CountingClock final : public Clock {
 public:
  [[nodiscard]] std::chrono::nanoseconds now() const override { return clock_.now(); }
  [[nodiscard]] std::unique_ptr<Timer> callLater(std::chrono::nanoseconds delay, Turn turn) override {
    return clock_.callLater(delay, std::move(turn));
  }
  void post(Turn turn) override {
    clock_.post(std::move(turn));
    ++posts_;
  }

  [[nodiscard]] VirtualClock& loop() { return clock_; }
  [[nodiscard]] int posts() const { return posts_; }

 private:
  VirtualClock clock_;
  std::atomic<int> posts_ = 0;
};

/// A folder of the test's own, removed with everything in it at the end.
class ScratchFolder {
 public:
  ScratchFolder();
  ScratchFolder(const ScratchFolder&) = delete;
  ScratchFolder& operator=(const ScratchFolder&) = delete;
  ~ScratchFolder();

  [[nodiscard]] const std::filesystem::path& path() const { return path_; }

  /// How many files lie in it.
  [[nodiscard]] std::size_t count() const;

 private:
  std::filesystem::path path_;
};

/// What a child process would inherit now beside its three standard descriptors.
[[nodiscard]] std::set<int> inheritedDescriptors();

[[nodiscard]] std::string contentOf(const std::filesystem::path& file);

/// A request as the other side saw it.
struct SeenRequest {
  std::string method;
  std::string path;
  HttpHeaders headers;
  std::string body;
};

class HttpWorld {
 public:
  /// The session of the world keeps at most that many bytes of body in memory.
  static constexpr std::size_t memoryLimit = std::size_t{4} << 20;

  HttpWorld() = default;
  HttpWorld(const HttpWorld&) = delete;
  HttpWorld& operator=(const HttpWorld&) = delete;
  virtual ~HttpWorld() = default;

  [[nodiscard]] virtual HttpSession& session() = 0;
  virtual void endSession() = 0;

  [[nodiscard]] virtual std::string url(const std::string& path) const = 0;
  [[nodiscard]] virtual std::string urlWithoutListener() = 0;

  /// The next request to `path` is answered so.
  virtual void answer(const std::string& method, const std::string& path, ScriptedAnswer answer) = 0;

  /// The next request to `path` gets the beginning of an answer, then the connection ends.
  virtual void cutShort(const std::string& method, const std::string& path) = 0;

  /// The next request to `path` gets interim answers as long as it takes them.
  virtual void interimForEver(const std::string& method, const std::string& path) = 0;

  /// The next request to `path` gets an answer with headers as long as it takes them.
  virtual void headForEver(const std::string& method, const std::string& path) = 0;

  [[nodiscard]] virtual std::vector<SeenRequest> seen() const = 0;

  /// A folder for downloads, and what is left in it.
  [[nodiscard]] virtual std::filesystem::path folder() const = 0;
  [[nodiscard]] virtual std::size_t filesInFolder() const = 0;
  [[nodiscard]] virtual std::string contentAt(const std::filesystem::path& file) const = 0;

  /// Runs turns until `isReached`; answers whether it was reached within 20 s.
  virtual bool runUntil(const std::function<bool()>& isReached) = 0;

  /// Waits, running no turn, until at least one has been queued by now.
  virtual void awaitQueuedTurn() = 0;

  /// Runs turns for a while in which whatever is under way would come.
  virtual void settle() = 0;
};

[[nodiscard]] std::unique_ptr<HttpWorld> makeScriptedWorld();

/// The real session with each way of bringing a body into a file.
[[nodiscard]] std::unique_ptr<HttpWorld> makeSplicingWorld();
[[nodiscard]] std::unique_ptr<HttpWorld> makeCopyingWorld();

}  // namespace zunto::testing
