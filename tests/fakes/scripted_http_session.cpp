#include "tests/fakes/scripted_http_session.h"

#include <memory>
#include <utility>

namespace zunto::testing {

using std::chrono::nanoseconds;

namespace {

std::string pathOf(const std::string& url) {
  const std::size_t scheme = url.find("://");
  const std::size_t path = url.find('/', scheme == std::string::npos ? 0 : scheme + 3);
  return path == std::string::npos ? "/" : url.substr(path);
}

/// When and how one request ends by the script.
struct Ending {
  nanoseconds after{0};
  std::optional<std::string> failure;
};

Ending endingOf(const ScriptedAnswer& answer, nanoseconds timeout) {
  const std::string timedOut = "The request timed out.";
  if (answer.isSilent || answer.delay >= timeout) return {timeout, timedOut};
  if (answer.failure) return {answer.delay, answer.failure};
  const auto gaps = static_cast<nanoseconds::rep>(answer.headPieces - 1 + answer.pieces - 1);
  if (gaps > 0 && answer.pieceInterval >= timeout) return {answer.delay + timeout, timedOut};
  return {answer.delay + gaps * answer.pieceInterval, std::nullopt};
}

}  // namespace

ScriptedAnswer ScriptedAnswer::refusedConnection() {
  return transportFailure("Could not connect to the local processor.");
}

ScriptedAnswer ScriptedAnswer::transportFailure(std::string message) {
  return {.failure = std::move(message)};
}

ScriptedAnswer ScriptedAnswer::notHttp() { return {.status = std::nullopt}; }

ScriptedAnswer ScriptedAnswer::cutShort() {
  return transportFailure("The answer of the local processor was cut short.");
}

ScriptedAnswer ScriptedAnswer::silence() { return {.isSilent = true}; }

std::optional<std::string> RecordedRequest::header(std::string_view name) const {
  return HttpResponseHead{std::nullopt, headers}.header(name);
}

/// One request under way: a timer of the test's clock for its ending, which dies with this object or with the
/// session.
class ScriptedHttpSession::Transfer final : public HttpTransfer {
 public:
  /// `index` is that of the request in the log; none when no request was sent.
  Transfer(const std::shared_ptr<Log>& log, std::optional<std::size_t> index) : log_(log), index_(index) {}
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  ~Transfer() override { conclude(RecordedRequest::Fate::cancelled); }

  /// Calls `ending` on the turn `delay` from now, unless this object or the session is gone by then.
  void endAfter(Clock& clock, nanoseconds delay, std::function<void()> ending) {
    ending_ = std::make_shared<std::function<void()>>(std::move(ending));
    auto turn = [log = log_, weak = std::weak_ptr(ending_)] {
      const auto call = weak.lock();
      if (call && !log.expired()) (*call)();
    };
    if (delay > nanoseconds::zero()) {
      timer_ = clock.callLater(delay, std::move(turn));
    } else {
      clock.post(std::move(turn));
    }
  }

  void conclude(RecordedRequest::Fate fate) {
    const std::shared_ptr<Log> log = log_.lock();
    if (!log || !index_) return;
    RecordedRequest& request = log->requests[*index_];
    if (request.fate == RecordedRequest::Fate::pending) request.fate = fate;
  }

 private:
  std::weak_ptr<Log> log_;
  std::optional<std::size_t> index_;
  std::shared_ptr<std::function<void()>> ending_;
  std::unique_ptr<Timer> timer_;
};

ScriptedHttpSession::ScriptedHttpSession(Clock& clock, std::size_t memoryLimit)
    : clock_(clock), memoryLimit_(memoryLimit) {}

ScriptedHttpSession::~ScriptedHttpSession() = default;

void ScriptedHttpSession::answer(const std::string& method, const std::string& path, ScriptedAnswer answer) {
  queued_[{method, path}].push_back(std::move(answer));
}

void ScriptedHttpSession::answerAlways(const std::string& method, const std::string& path,
                                       ScriptedAnswer answer) {
  standing_[{method, path}] = std::move(answer);
}

void ScriptedHttpSession::onCreatingFile(std::function<void(const std::filesystem::path&)> creating) {
  creating_ = std::move(creating);
}

void ScriptedHttpSession::onMovingFile(FakeTemporaryFile::MoveHook moving) { moving_ = std::move(moving); }

const std::vector<RecordedRequest>& ScriptedHttpSession::requests() const { return log_->requests; }

std::vector<RecordedRequest> ScriptedHttpSession::requests(const std::string& method,
                                                           const std::string& path) const {
  std::vector<RecordedRequest> matching;
  for (const RecordedRequest& request : log_->requests) {
    if (request.method == method && request.path == path) matching.push_back(request);
  }
  return matching;
}

std::size_t ScriptedHttpSession::record(const HttpRequest& request,
                                        const std::optional<std::filesystem::path>& folder) {
  log_->requests.push_back({.time = clock_.now(),
                            .method = request.method,
                            .url = request.url,
                            .path = pathOf(request.url),
                            .headers = request.headers,
                            .body = request.body,
                            .timeout = request.timeout,
                            .folder = folder});
  return log_->requests.size() - 1;
}

ScriptedAnswer ScriptedHttpSession::nextAnswer(const RecordedRequest& request) {
  const Key key{request.method, request.path};
  if (const auto queue = queued_.find(key); queue != queued_.end() && !queue->second.empty()) {
    ScriptedAnswer next = std::move(queue->second.front());
    queue->second.pop_front();
    return next;
  }
  if (const auto standing = standing_.find(key); standing != standing_.end()) return standing->second;
  return ScriptedAnswer::transportFailure("No answer is scripted for " + request.method + " " + request.path);
}

std::unique_ptr<HttpTransfer> ScriptedHttpSession::send(HttpRequest request,
                                                        std::function<void(Outcome<HttpResponse>)> done) {
  const std::size_t index = record(request, std::nullopt);
  ScriptedAnswer scripted = nextAnswer(log_->requests[index]);
  Ending ending = endingOf(scripted, request.timeout);
  if (!ending.failure && scripted.body.size() > memoryLimit_) {
    ending.failure = "The answer of the local processor is too large.";
  }
  auto transfer = std::make_unique<Transfer>(log_, index);
  Transfer* const call = transfer.get();
  transfer->endAfter(clock_, ending.after, [call, scripted, failure = ending.failure, done] {
    if (failure) {
      call->conclude(RecordedRequest::Fate::failed);
      done(SystemError(*failure));
      return;
    }
    call->conclude(RecordedRequest::Fate::answered);
    done(HttpResponse{{scripted.status, scripted.headers}, scripted.body});
  });
  return transfer;
}

std::unique_ptr<HttpTransfer> ScriptedHttpSession::download(HttpRequest request, std::filesystem::path folder,
                                                            std::function<void(Outcome<HttpDownload>)> done) {
  try {
    if (creating_) creating_(folder);
  } catch (const SystemError& failure) {
    auto refused = std::make_unique<Transfer>(log_, std::nullopt);
    refused->endAfter(clock_, nanoseconds::zero(), [failure, done] { done(failure); });
    return refused;
  }
  const std::size_t index = record(request, folder);
  ScriptedAnswer scripted = nextAnswer(log_->requests[index]);
  const Ending ending = endingOf(scripted, request.timeout);
  files_.push_back(std::make_shared<TemporaryFileRecord>(TemporaryFileRecord{folder, {}, {}, false}));
  // The file lives in the call, so it goes with the transfer unless the answer hands it over.
  auto file = std::make_shared<std::unique_ptr<TemporaryFile>>(
      std::make_unique<FakeTemporaryFile>(files_.back(), moving_));
  auto transfer = std::make_unique<Transfer>(log_, index);
  Transfer* const call = transfer.get();
  transfer->endAfter(clock_, ending.after,
                     [call, scripted, failure = ending.failure, content = files_.back(), file, done] {
                       if (failure) {
                         call->conclude(RecordedRequest::Fate::failed);
                         file->reset();
                         done(SystemError(*failure));
                         return;
                       }
                       call->conclude(RecordedRequest::Fate::answered);
                       content->content = scripted.body;
                       done(HttpDownload{{scripted.status, scripted.headers}, std::move(*file)});
                     });
  return transfer;
}

}  // namespace zunto::testing
