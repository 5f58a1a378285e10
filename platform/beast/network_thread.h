// The network thread: it carries out exchanges side by side until they end, time out or are cancelled.
//
// Owner: the HTTP session. Thread: made, used and destroyed on the main thread.
#pragma once

#include <functional>
#include <memory>

#include "platform/beast/answer_body.h"
#include "platform/beast/local_request.h"
#include "platform/http.h"

namespace zunto {

class Exchange;

class NetworkThread {
 public:
  /// Starts the thread, with every signal blocked: signals are the main thread's. Throws SystemError.
  NetworkThread();
  NetworkThread(const NetworkThread&) = delete;
  NetworkThread& operator=(const NetworkThread&) = delete;

  /// Drops every exchange and joins the thread.
  ~NetworkThread();

  /// Begins an exchange soon; it calls `completed` once on the network thread. The handle serves cancel().
  [[nodiscard]] std::weak_ptr<Exchange> start(LocalRequest request, AnswerBody body,
                                              std::function<void(Outcome<HttpResponse>)> completed);

  /// Ends an exchange soon; nothing when it has ended. It may still report an end that came before.
  void cancel(std::weak_ptr<Exchange> exchange);

 private:
  class Loop;

  std::unique_ptr<Loop> loop_;
};

}  // namespace zunto
