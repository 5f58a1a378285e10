#include "platform/beast/beast_http_session.h"

#include <utility>
#include <variant>

#include "platform/beast/answer_body.h"
#include "platform/beast/local_request.h"
#include "platform/beast/network_thread.h"
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
std::function<void(Outcome<HttpResponse>)> poster(Clock& clock, const std::shared_ptr<NetworkThread>& network,
                                                  const std::shared_ptr<Call<Answer>>& call) {
  return
      [&clock, session = std::weak_ptr(network), waiting = std::weak_ptr(call)](Outcome<HttpResponse> end) {
        auto outcome = std::make_shared<Outcome<HttpResponse>>(std::move(end));
        clock.post([session, waiting, outcome] {
          const std::shared_ptr<Call<Answer>> receiver = waiting.lock();
          if (receiver && !session.expired()) answer(*receiver, std::move(*outcome));
        });
      };
}

}  // namespace

class BeastHttpSession::Transfer final : public HttpTransfer {
 public:
  explicit Transfer(std::shared_ptr<void> call) : call_(std::move(call)) {}
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  ~Transfer() override {
    if (const std::shared_ptr<NetworkThread> network = network_.lock()) network->cancel(exchange_);
  }

  void start(const std::shared_ptr<NetworkThread>& network, LocalRequest request, AnswerBody body,
             std::function<void(Outcome<HttpResponse>)> completed) {
    network_ = network;
    exchange_ = network->start(std::move(request), std::move(body), std::move(completed));
  }

 private:
  std::shared_ptr<void> call_;
  std::weak_ptr<NetworkThread> network_;
  std::weak_ptr<Exchange> exchange_;
};

BeastHttpSession::BeastHttpSession(Clock& clock, BeastHttpOptions options)
    : clock_(clock), options_(options), network_(std::make_shared<NetworkThread>()) {}

BeastHttpSession::~BeastHttpSession() = default;

std::unique_ptr<HttpTransfer> BeastHttpSession::send(HttpRequest request,
                                                     std::function<void(Outcome<HttpResponse>)> done) {
  auto call = std::make_shared<Call<HttpResponse>>(Call<HttpResponse>{std::move(done), nullptr});
  auto transfer = std::make_unique<Transfer>(call);
  const auto completed = poster(clock_, network_, call);
  try {
    transfer->start(network_, localRequest(request), AnswerBody(options_.memoryLimit), completed);
  } catch (const SystemError& failure) {
    completed(failure);
  }
  return transfer;
}

std::unique_ptr<HttpTransfer> BeastHttpSession::download(HttpRequest request, std::filesystem::path folder,
                                                         std::function<void(Outcome<HttpDownload>)> done) {
  auto call = std::make_shared<Call<HttpDownload>>(Call<HttpDownload>{std::move(done), nullptr});
  auto transfer = std::make_unique<Transfer>(call);
  const auto completed = poster(clock_, network_, call);
  try {
    call->file = std::make_unique<PosixTemporaryFile>(folder);
    transfer->start(network_, localRequest(request), AnswerBody(call->file->takeWriter(), options_.pumping),
                    completed);
  } catch (const SystemError& failure) {
    completed(failure);
  }
  return transfer;
}

}  // namespace zunto
