#include "platform/curl/curl_http_session.h"

#include <optional>
#include <utility>
#include <variant>

#include "platform/curl/curl_exchange.h"
#include "platform/curl/curl_worker.h"
#include "platform/posix/posix_temporary_file.h"

namespace zunto {

namespace {

/// What the caller waits for. Only the main thread holds it, so it ends with the transfer that the caller has
/// dropped, and the file with it; the network thread and queued turns merely refer to it.
template <class Answer>
struct Call {
  std::function<void(Outcome<Answer>)> done;
  std::unique_ptr<PosixTemporaryFile> file;
};

void answer(Call<HttpResponse>& call, Outcome<HttpResponse> outcome) {
  std::exchange(call.done, nullptr)(std::move(outcome));
}

void answer(Call<HttpDownload>& call, Outcome<HttpResponse> outcome) {
  const auto done = std::exchange(call.done, nullptr);
  if (const auto* failure = std::get_if<SystemError>(&outcome)) {
    call.file.reset();
    done(*failure);
    return;
  }
  done(HttpDownload{std::get<HttpResponse>(std::move(outcome)).head, std::move(call.file)});
}

/// Takes the end of an exchange from the thread where it occurs to a turn of the main loop.
template <class Answer>
CurlExchange::Completed poster(Clock& clock, const std::shared_ptr<CurlWorker>& worker,
                               const std::shared_ptr<Call<Answer>>& call) {
  return [&clock, session = std::weak_ptr(worker), waiting = std::weak_ptr(call)](Outcome<HttpResponse> end) {
    auto outcome = std::make_shared<Outcome<HttpResponse>>(std::move(end));
    clock.post([session, waiting, outcome] {
      const std::shared_ptr<Call<Answer>> receiver = waiting.lock();
      if (receiver && !session.expired()) answer(*receiver, std::move(*outcome));
    });
  };
}

}  // namespace

class CurlHttpSession::Transfer final : public HttpTransfer {
 public:
  explicit Transfer(std::shared_ptr<void> call) : call_(std::move(call)) {}
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  ~Transfer() override {
    const std::shared_ptr<CurlWorker> worker = worker_.lock();
    if (worker && exchange_) worker->cancel(*exchange_);
  }

  void start(const std::shared_ptr<CurlWorker>& worker, std::unique_ptr<CurlExchange> exchange) {
    worker_ = worker;
    exchange_ = worker->start(std::move(exchange));
  }

 private:
  std::shared_ptr<void> call_;
  std::weak_ptr<CurlWorker> worker_;
  std::optional<CurlWorker::Id> exchange_;
};

CurlHttpSession::CurlHttpSession(Clock& clock, CurlHttpOptions options)
    : clock_(clock), options_(options), worker_(std::make_shared<CurlWorker>()) {}

CurlHttpSession::~CurlHttpSession() = default;

std::unique_ptr<HttpTransfer> CurlHttpSession::send(HttpRequest request,
                                                    std::function<void(Outcome<HttpResponse>)> done) {
  auto call = std::make_shared<Call<HttpResponse>>(Call<HttpResponse>{std::move(done), nullptr});
  auto transfer = std::make_unique<Transfer>(call);
  const CurlExchange::Completed completed = poster(clock_, worker_, call);
  try {
    transfer->start(worker_, std::make_unique<CurlExchange>(std::move(request), options_.memoryLimit, nullptr,
                                                            completed));
  } catch (const SystemError& failure) {
    completed(failure);
  }
  return transfer;
}

std::unique_ptr<HttpTransfer> CurlHttpSession::download(HttpRequest request, std::filesystem::path folder,
                                                        std::function<void(Outcome<HttpDownload>)> done) {
  auto call = std::make_shared<Call<HttpDownload>>(Call<HttpDownload>{std::move(done), nullptr});
  auto transfer = std::make_unique<Transfer>(call);
  const CurlExchange::Completed completed = poster(clock_, worker_, call);
  try {
    call->file = std::make_unique<PosixTemporaryFile>(folder);
    transfer->start(worker_, std::make_unique<CurlExchange>(std::move(request), options_.memoryLimit,
                                                            call->file->takeWriter(), completed));
  } catch (const SystemError& failure) {
    completed(failure);
  }
  return transfer;
}

}  // namespace zunto
