// An HTTP session whose world is a script: a test queues answers per method and path, and reads afterwards
// which requests were sent, and when.
//
//   ScriptedHttpSession http(clock);
//   http.answer("POST", "/probe", {.status = 202, .body = R"({"jobId":"1","status":"queued"})"});
//   http.answerAlways("GET", "/jobs/1", {.body = R"({"jobId":"1","status":"downloading"})"});
//   http.answer("GET", "/jobs/1/result", ScriptedAnswer::silence());
//
// Owner: the test, beside its clock. Thread: main thread only.
#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "async/clock.h"
#include "platform/http.h"
#include "tests/fakes/fake_temporary_file.h"

namespace zunto::testing {

/// How the script's world answers one request. As in the real one, a wait that reaches the request's time-out
/// fails the request, be it the wait for the answer or for the next piece of it.
struct ScriptedAnswer {
  std::optional<int> status = 200;
  HttpHeaders headers = {};
  std::string body = {};
  std::chrono::nanoseconds delay{0};          ///< from the request to the first byte of the answer
  std::size_t headPieces = 1;                 ///< the head comes in that many pieces ...
  std::size_t pieces = 1;                     ///< ... and the body in that many ...
  std::chrono::nanoseconds pieceInterval{0};  ///< ... this far apart
  std::optional<std::string> failure = {};    ///< after the delay this transport failure comes instead
  bool isSilent = false;                      ///< no answer ever comes

  /// Nobody listens there.
  [[nodiscard]] static ScriptedAnswer refusedConnection();

  /// The request fails underneath HTTP with `message`.
  [[nodiscard]] static ScriptedAnswer transportFailure(std::string message);

  /// What listens there speaks another protocol.
  [[nodiscard]] static ScriptedAnswer notHttp();

  /// The connection ends in the middle of the body.
  [[nodiscard]] static ScriptedAnswer cutShort();

  /// The connection is taken and no byte ever comes: the request's time-out ends it.
  [[nodiscard]] static ScriptedAnswer silence();
};

/// One request as it was sent, and how it stands now.
struct RecordedRequest {
  enum class Fate { pending, answered, failed, cancelled };

  std::chrono::nanoseconds time{0};  ///< by the clock, when it was sent
  std::string method;
  std::string url;
  std::string path;  ///< of the url, with its query
  HttpHeaders headers;
  std::optional<std::string> body;
  std::chrono::seconds timeout{0};
  std::optional<std::filesystem::path> folder;  ///< of a download
  Fate fate = Fate::pending;

  /// The value of the first header of that name, letter case ignored; none when it was not sent.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

class ScriptedHttpSession final : public HttpSession {
 public:
  /// `clock` must outlive this object. Past `memoryLimit` bytes of body, send() fails.
  explicit ScriptedHttpSession(Clock& clock, std::size_t memoryLimit = std::size_t{64} << 20);
  ScriptedHttpSession(const ScriptedHttpSession&) = delete;
  ScriptedHttpSession& operator=(const ScriptedHttpSession&) = delete;
  ~ScriptedHttpSession() override;

  /// Queues the answer to one request of `method` for `path` ("/jobs/1"). Answers of the same method and path
  /// are given in the order of their queueing.
  void answer(const std::string& method, const std::string& path, ScriptedAnswer answer);

  /// The answer to every request of `method` for `path` for which none is queued. A request without any fails
  /// with a sentence that names it.
  void answerAlways(const std::string& method, const std::string& path, ScriptedAnswer answer);

  /// Called at the start of each download with its folder. Throwing SystemError fails the download, which
  /// then sends no request.
  void onCreatingFile(std::function<void(const std::filesystem::path& folder)> creating);

  /// Called at each move of a downloaded file; see FakeTemporaryFile::MoveHook.
  void onMovingFile(FakeTemporaryFile::MoveHook moving);

  /// Every request so far, in the order of sending.
  [[nodiscard]] const std::vector<RecordedRequest>& requests() const;

  /// Those of `method` for `path`.
  [[nodiscard]] std::vector<RecordedRequest> requests(const std::string& method,
                                                      const std::string& path) const;

  /// The files of all downloads so far, in the order of their making.
  [[nodiscard]] const std::vector<std::shared_ptr<TemporaryFileRecord>>& files() const { return files_; }

  [[nodiscard]] std::unique_ptr<HttpTransfer> send(HttpRequest request,
                                                   std::function<void(Outcome<HttpResponse>)> done) override;
  [[nodiscard]] std::unique_ptr<HttpTransfer> download(
      HttpRequest request, std::filesystem::path folder,
      std::function<void(Outcome<HttpDownload>)> done) override;

 private:
  class Transfer;
  using Key = std::pair<std::string, std::string>;
  struct Log {
    std::vector<RecordedRequest> requests;
  };

  std::size_t record(const HttpRequest& request, const std::optional<std::filesystem::path>& folder);
  ScriptedAnswer nextAnswer(const RecordedRequest& request);

  Clock& clock_;
  std::size_t memoryLimit_;
  std::shared_ptr<Log> log_ = std::make_shared<Log>();
  std::map<Key, std::deque<ScriptedAnswer>> queued_;
  std::map<Key, ScriptedAnswer> standing_;
  std::function<void(const std::filesystem::path&)> creating_;
  FakeTemporaryFile::MoveHook moving_;
  std::vector<std::shared_ptr<TemporaryFileRecord>> files_;
};

}  // namespace zunto::testing
