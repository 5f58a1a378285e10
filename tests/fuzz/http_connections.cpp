// The real session against a server that sends whatever bytes it likes, in pieces, and then closes, resets or
// is left by the client. What goes into memory and what goes into a file must be the same answer.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <semaphore>
#include <string>
#include <utility>
#include <variant>

#include "platform/beast/beast_http_session.h"
#include "platform/posix/descriptor.h"
#include "property.h"
#include "temporary_folder.h"
#include "tests/fakes/virtual_clock.h"

namespace {

using namespace zunto;
using zunto::fuzz::require;

constexpr std::size_t memoryLimit = 4096;
constexpr std::chrono::seconds patience{60};

/// A main loop that sleeps until a turn is posted.
class WaitingClock final : public Clock {
 public:
  [[nodiscard]] std::chrono::nanoseconds now() const override { return clock_.now(); }
  [[nodiscard]] std::unique_ptr<Timer> callLater(std::chrono::nanoseconds delay, Turn turn) override {
    return clock_.callLater(delay, std::move(turn));
  }
  void post(Turn turn) override {
    clock_.post(std::move(turn));
    posted_.release();
  }

  /// Answers false when none comes for long.
  bool runNextTurn() { return posted_.try_acquire_for(patience) && clock_.runOneTurn(); }
  void runTurns() {
    while (posted_.try_acquire()) clock_.runOneTurn();
  }

 private:
  testing::VirtualClock clock_;
  std::counting_semaphore<> posted_{0};
};

/// A server without a thread: the session's thread is the other side.
class Server {
 public:
  Server() : listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    require(::bind(listener_.number(), generic, length) == 0 && ::listen(listener_.number(), 8) == 0 &&
                ::getsockname(listener_.number(), generic, &length) == 0,
            "the server listens");
    url_ = "http://127.0.0.1:" + std::to_string(ntohs(address.sin_port)) + "/jobs/1/result";
  }

  [[nodiscard]] const std::string& url() const { return url_; }

  /// Takes the next connection with its request.
  [[nodiscard]] Descriptor acceptRequest() const {
    Descriptor client(::accept4(listener_.number(), nullptr, nullptr, SOCK_CLOEXEC));
    require(client.isOpen(), "the session connects");
    std::string request;
    std::array<char, 4096> bytes{};
    while (request.find("\r\n\r\n") == std::string::npos) {
      const ssize_t count = ::recv(client.number(), bytes.data(), bytes.size(), 0);
      require(count > 0, "the session sends its request");
      request.append(bytes.data(), static_cast<std::size_t>(count));
    }
    return client;
  }

 private:
  Descriptor listener_;
  std::string url_;
};

enum class End { close, reset, dropped };

void converse(const Server& server, std::string_view bytes, std::size_t piece, End end) {
  const Descriptor client = server.acceptRequest();
  while (!bytes.empty()) {
    const std::string_view next = bytes.substr(0, piece);
    // The client may have gone: what it has read suffices.
    if (::send(client.number(), next.data(), next.size(), MSG_NOSIGNAL) < 0) return;
    bytes.remove_prefix(next.size());
  }
  if (end != End::reset) return;
  const linger none{1, 0};
  ::setsockopt(client.number(), SOL_SOCKET, SO_LINGER, &none, sizeof none);
}

struct Answer {
  HttpResponseHead head;
  std::string body;
  std::string failure;
};

Answer answerOf(const Outcome<HttpResponse>& outcome, const std::filesystem::path&) {
  if (const auto* failure = std::get_if<SystemError>(&outcome))
    return {.head = {}, .body = {}, .failure = failure->message()};
  const auto& response = std::get<HttpResponse>(outcome);
  require(response.body.size() <= memoryLimit, "memory has a bound");
  return {.head = response.head, .body = response.body, .failure = {}};
}

Answer answerOf(const Outcome<HttpDownload>& outcome, const std::filesystem::path& folder) {
  if (const auto* failure = std::get_if<SystemError>(&outcome))
    return {.head = {}, .body = {}, .failure = failure->message()};
  const auto& download = std::get<HttpDownload>(outcome);
  const std::filesystem::path place = folder / "result";
  download.file->moveTo(place);
  std::ifstream file(place, std::ios::binary);
  std::string body{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  std::filesystem::remove(place);
  return {.head = download.head, .body = std::move(body), .failure = {}};
}

struct World {
  WaitingClock clock;
  BeastHttpSession session{clock, {.memoryLimit = memoryLimit}};
  Server server;
  testing::TemporaryFolder folder;

  HttpRequest request() const {
    HttpRequest request;
    request.url = server.url();
    return request;
  }

  /// What comes of one request, which `start` sends; none when it is dropped.
  template <class T>
  std::optional<Answer> answer(
      const std::function<std::unique_ptr<HttpTransfer>(std::function<void(Outcome<T>)>)>& start,
      std::string_view bytes, std::size_t piece, End end) {
    std::optional<Answer> answer;
    int calls = 0;
    std::unique_ptr<HttpTransfer> transfer = start([&](Outcome<T> outcome) {
      ++calls;
      answer = answerOf(outcome, folder.path());
      outcome = SystemError("");  // and with it the file
    });
    converse(server, bytes, piece, end);
    if (end == End::dropped) {
      transfer.reset();
      clock.runTurns();
      require(calls == 0, "who has dropped a request hears nothing of it");
      return std::nullopt;
    }
    while (calls == 0) require(clock.runNextTurn(), "an answer that has ended is told");
    transfer.reset();
    clock.runTurns();
    require(calls == 1, "an answer is told once");
    return answer;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  static World world;
  const End end = std::array{End::close, End::close, End::close, End::reset, End::dropped}.at(data[0] % 5);
  const std::size_t piece = 1 + (std::size_t{data[0]} / 5) * 40;
  const std::string_view bytes = fuzz::textOf(data + 1, size - 1);
  const auto inMemory = world.answer<HttpResponse>(
      [](auto done) { return world.session.send(world.request(), std::move(done)); }, bytes, piece, end);
  const auto inFile = world.answer<HttpDownload>(
      [](auto done) { return world.session.download(world.request(), world.folder.path(), std::move(done)); },
      bytes, piece, end);
  require(std::filesystem::is_empty(world.folder.path()), "a download that is let go leaves nothing behind");
  if (end != End::close || !inMemory->failure.empty()) return 0;  // a file may be larger than memory
  require(inFile->failure.empty(), "a file takes what memory takes: " + inFile->failure);
  require(inFile->head.status == inMemory->head.status && inFile->head.headers == inMemory->head.headers,
          "memory and file have the same head");
  require(inFile->body == inMemory->body, "memory and file have the same body");
  return 0;
}
