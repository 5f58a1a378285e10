#include "http_world.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <fstream>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <utility>

#include "http_raw_server.h"
#include "platform/beast/beast_http_session.h"
#include "system_faults.h"

namespace zunto::testing {

using namespace std::chrono_literals;

ScratchFolder::ScratchFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "zunto-http-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) throw std::runtime_error("no folder for the test");
  path_ = pattern;
}

ScratchFolder::~ScratchFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::size_t ScratchFolder::count() const {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(path_), {}));
}

std::set<int> inheritedDescriptors() {
  std::set<int> inherited;
  for (int descriptor = STDERR_FILENO + 1; descriptor < 1024; ++descriptor) {
    const int flags = ::fcntl(descriptor, F_GETFD);
    if (flags != -1 && (flags & FD_CLOEXEC) == 0) inherited.insert(descriptor);
  }
  return inherited;
}

std::string contentOf(const std::filesystem::path& file) {
  std::ostringstream content;
  content << std::ifstream(file, std::ios::binary).rdbuf();
  return content.str();
}

namespace {

class ScriptedWorld final : public HttpWorld {
 public:
  ScriptedWorld() {
    session_->onCreatingFile([this](const std::filesystem::path& folder) {
      if (folder != this->folder()) throw SystemError("No file could be made.");
    });
    session_->onMovingFile([this](const TemporaryFileRecord& file, const std::filesystem::path& destination) {
      moved_[destination] = file.content;
    });
  }

  HttpSession& session() override { return *session_; }
  void endSession() override {
    seen_ = seen();
    files_ = session_->files();
    session_.reset();
  }
  [[nodiscard]] std::string url(const std::string& path) const override {
    return "http://127.0.0.1:43127" + path;
  }
  std::string urlWithoutListener() override {
    session_->answer("GET", "/nobody", ScriptedAnswer::refusedConnection());
    return url("/nobody");
  }
  void answer(const std::string& method, const std::string& path, ScriptedAnswer answer) override {
    session_->answer(method, path, std::move(answer));
  }
  void cutShort(const std::string& method, const std::string& path) override {
    session_->answer(method, path, ScriptedAnswer::cutShort());
  }
  void interimForEver(const std::string& method, const std::string& path) override {
    fail(method, path, "The local processor sent interim answers without an end.");
  }
  void headForEver(const std::string& method, const std::string& path) override {
    fail(method, path, "The head of the local processor's answer is too large.");
  }
  [[nodiscard]] std::vector<SeenRequest> seen() const override {
    if (!session_) return seen_;
    std::vector<SeenRequest> seen;
    for (const RecordedRequest& request : session_->requests()) {
      seen.push_back({request.method, request.path, request.headers, request.body.value_or("")});
    }
    return seen;
  }
  [[nodiscard]] std::filesystem::path folder() const override { return "/scripted/folder"; }
  [[nodiscard]] std::size_t filesInFolder() const override {
    const auto& files = session_ ? session_->files() : files_;
    return static_cast<std::size_t>(
        std::count_if(files.begin(), files.end(), [](const auto& file) { return !file->isRemoved; }));
  }
  [[nodiscard]] std::string contentAt(const std::filesystem::path& file) const override {
    return moved_.at(file);
  }
  bool runUntil(const std::function<bool()>& isReached) override {
    for (auto waited = 0ms; waited < 20s && !isReached(); waited += 10ms) clock_.loop().advance(10ms);
    return isReached();
  }
  void awaitQueuedTurn() override {
    if (clock_.posts() == 0) throw std::runtime_error("no turn is queued");
  }
  void settle() override { clock_.loop().advance(100s); }

 private:
  void fail(const std::string& method, const std::string& path, const std::string& message) {
    session_->answer(method, path, ScriptedAnswer::transportFailure(message));
  }

  CountingClock clock_;
  std::map<std::filesystem::path, std::string> moved_;
  std::vector<SeenRequest> seen_;
  std::vector<std::shared_ptr<TemporaryFileRecord>> files_;
  std::optional<ScriptedHttpSession> session_{std::in_place, clock_, memoryLimit};
};

/// "POST /probe HTTP/1.1\r\n..." taken apart.
SeenRequest parsed(const std::string& raw) {
  SeenRequest seen;
  std::istringstream lines(raw);
  std::string line;
  std::getline(lines, line);
  std::istringstream(line) >> seen.method >> seen.path;
  while (std::getline(lines, line) && line != "\r") {
    const std::size_t colon = line.find(':');
    std::string value = line.substr(colon + 1, line.size() - colon - 2);  // without the line's end
    if (value.starts_with(' ')) value.erase(0, 1);
    seen.headers.emplace_back(line.substr(0, colon), value);
  }
  seen.body = raw.substr(raw.find("\r\n\r\n") + 4);
  return seen;
}

class RealWorld final : public HttpWorld {
 public:
  explicit RealWorld(BodyPump::Method pumping)
      : session_(std::in_place, clock_, BeastHttpOptions{memoryLimit, pumping}) {}

  HttpSession& session() override { return *session_; }
  void endSession() override { session_.reset(); }
  [[nodiscard]] std::string url(const std::string& path) const override { return server_.url(path); }
  std::string urlWithoutListener() override {
    return RawServer([](RawServer::Connection&) {}).url("/nobody");
  }
  void answer(const std::string& method, const std::string& path, ScriptedAnswer answer) override {
    queue(method, path, [answer](RawServer::Connection& connection) { speak(connection, answer); });
  }
  void cutShort(const std::string& method, const std::string& path) override {
    queue(method, path, [](RawServer::Connection& connection) {
      connection.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\nhalf");
    });
  }
  void interimForEver(const std::string& method, const std::string& path) override {
    queue(method, path, [](RawServer::Connection& connection) {
      while (connection.send("HTTP/1.1 102 Processing\r\n\r\n")) {
      }
    });
  }
  void headForEver(const std::string& method, const std::string& path) override {
    queue(method, path, [](RawServer::Connection& connection) {
      connection.send("HTTP/1.1 200 OK\r\n");
      while (connection.send("X-Header: and another one\r\n")) {
      }
    });
  }
  [[nodiscard]] std::vector<SeenRequest> seen() const override {
    std::vector<SeenRequest> seen;
    for (const std::string& raw : server_.requests()) seen.push_back(parsed(raw));
    return seen;
  }
  [[nodiscard]] std::filesystem::path folder() const override { return folder_.path(); }
  [[nodiscard]] std::size_t filesInFolder() const override { return folder_.count(); }
  [[nodiscard]] std::string contentAt(const std::filesystem::path& file) const override {
    return contentOf(file);
  }
  bool runUntil(const std::function<bool()>& isReached) override { return runFor(20s, isReached); }
  void awaitQueuedTurn() override {
    while (clock_.posts() == 0) std::this_thread::sleep_for(1ms);
  }
  void settle() override {
    runFor(300ms, [] { return false; });
  }

 private:
  using Script = std::map<std::pair<std::string, std::string>, std::deque<RawServer::Conversation>>;

  /// Answers whether all of it could be sent.
  static bool sendInPieces(RawServer::Connection& connection, std::string_view bytes, std::size_t pieces,
                           std::chrono::nanoseconds interval) {
    const std::size_t pieceSize = (bytes.size() + pieces - 1) / pieces;
    for (std::size_t sent = 0; sent < bytes.size(); sent += pieceSize) {
      if (sent > 0 && !connection.wait(interval)) return false;
      if (!connection.send(bytes.substr(sent, pieceSize))) return false;
    }
    return true;
  }

  static void speak(RawServer::Connection& connection, const ScriptedAnswer& answer) {
    if (answer.isSilent) return connection.waitForClient();
    if (!connection.wait(answer.delay)) return;
    if (!answer.status) {
      connection.send("SSH-2.0-Stranger\r\n");
      return connection.waitForClient();
    }
    std::string head = "HTTP/1.1 " + std::to_string(*answer.status) + " Status\r\n";
    for (const auto& [name, value] : answer.headers)
      head.append(name).append(": ").append(value).append("\r\n");
    head += "Content-Length: " + std::to_string(answer.body.size()) + "\r\n\r\n";
    if (!sendInPieces(connection, head, answer.headPieces, answer.pieceInterval)) return;
    if (!sendInPieces(connection, answer.body, answer.pieces, answer.pieceInterval)) return;
    connection.waitForClient();
  }

  void queue(const std::string& method, const std::string& path, RawServer::Conversation conversation) {
    const std::lock_guard lock(mutex_);
    script_[{method, path}].push_back(std::move(conversation));
  }

  void converse(RawServer::Connection& connection) {
    const std::string request = connection.readRequest();
    if (request.empty()) return;
    const SeenRequest seen = parsed(request);
    RawServer::Conversation conversation;
    {
      const std::lock_guard lock(mutex_);
      auto& queued = script_[{seen.method, seen.path}];
      if (queued.empty()) return;
      conversation = std::move(queued.front());
      queued.pop_front();
    }
    conversation(connection);
  }

  bool runFor(std::chrono::milliseconds limit, const std::function<bool()>& isReached) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end) {
      clock_.loop().runTurns();
      if (isReached()) return true;
      std::this_thread::sleep_for(1ms);
    }
    return isReached();
  }

  CountingClock clock_;
  ScratchFolder folder_;
  std::mutex mutex_;
  Script script_;  // under the mutex
  RawServer server_{[this](RawServer::Connection& connection) { converse(connection); }};
  // Files of downloads are counted by the names that they have meanwhile.
  SystemFault noNameless_{SystemCall::makeNameless, EOPNOTSUPP};
  std::optional<BeastHttpSession> session_;
};

}  // namespace

std::unique_ptr<HttpWorld> makeScriptedWorld() { return std::make_unique<ScriptedWorld>(); }

std::unique_ptr<HttpWorld> makeSplicingWorld() {
  return std::make_unique<RealWorld>(BodyPump::Method::splice);
}

std::unique_ptr<HttpWorld> makeCopyingWorld() { return std::make_unique<RealWorld>(BodyPump::Method::copy); }

}  // namespace zunto::testing
