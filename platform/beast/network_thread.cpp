#include "platform/beast/network_thread.h"

#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/system/system_error.hpp>
#include <csignal>
#include <string>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/beast/exchange.h"
#include "platform/system_error.h"

namespace zunto {

namespace {

namespace asio = boost::asio;

/// Blocks every signal of the calling thread, and so of the threads it starts, for its own lifetime.
class BlockedSignals {
 public:
  BlockedSignals() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_{};
};

SystemError setupFailure(const std::string& reason) {
  return SystemError("The network could not be set up: " + reason + ".");
}

}  // namespace

class NetworkThread::Loop {
 public:
  Loop() {
    // Asio opens its own descriptors for the first timer: if there are none, that shows here.
    const asio::steady_timer first(context_);
    const BlockedSignals blocked;
    thread_ = std::thread([this] { context_.run(); });
  }
  Loop(const Loop&) = delete;
  Loop& operator=(const Loop&) = delete;
  ~Loop() {
    context_.stop();
    thread_.join();
  }

  [[nodiscard]] asio::io_context& context() { return context_; }

 private:
  // Handlers that never ran go with the context, and the exchanges with them.
  asio::io_context context_{1};
  asio::executor_work_guard<asio::io_context::executor_type> work_{context_.get_executor()};
  std::thread thread_;
};

NetworkThread::NetworkThread() {
  try {
    loop_ = std::make_unique<Loop>();
  } catch (const boost::system::system_error& failure) {
    throw setupFailure(failure.code().message());
  } catch (const std::system_error& failure) {
    throw setupFailure(failure.code().message());
  }
}

NetworkThread::~NetworkThread() = default;

std::weak_ptr<Exchange> NetworkThread::start(LocalRequest request, AnswerBody body,
                                             std::function<void(Outcome<HttpResponse>)> completed) {
  auto exchange =
      std::make_shared<Exchange>(loop_->context(), std::move(request), std::move(body), std::move(completed));
  std::weak_ptr<Exchange> started = exchange;
  asio::post(loop_->context(), [exchange = std::move(exchange)] { exchange->start(); });
  return started;
}

void NetworkThread::cancel(std::weak_ptr<Exchange> exchange) {
  asio::post(loop_->context(), [exchange = std::move(exchange)] {
    if (const std::shared_ptr<Exchange> running = exchange.lock()) running->cancel();
  });
}

}  // namespace zunto
