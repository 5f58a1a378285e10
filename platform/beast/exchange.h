// One request and its answer, on a connection of their own: what is sent, where the body goes, how long
// silence is borne, and what the end means.
//
// For the network thread's own use: this header brings in Asio. Owner: whatever is under way for it on the
// network thread; when nothing is any more, it ends and the connection is closed. Thread: the network thread,
// but for its making.
#pragma once

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <chrono>
#include <functional>
#include <memory>
#include <string_view>

#include "platform/beast/answer_body.h"
#include "platform/beast/answer_parser.h"
#include "platform/beast/local_request.h"
#include "platform/http.h"

namespace zunto {

class Exchange : public std::enable_shared_from_this<Exchange> {
 public:
  using Completed = std::function<void(Outcome<HttpResponse>)>;

  Exchange(boost::asio::io_context& context, LocalRequest request, AnswerBody body, Completed completed);
  Exchange(const Exchange&) = delete;
  Exchange& operator=(const Exchange&) = delete;
  ~Exchange() = default;

  /// Calls `completed` once with the answer, its body empty when it went to a file, or with the failure.
  void start();

  /// Closes the connection; nothing is called back afterwards.
  void cancel();

 private:
  template <class Step>
  void attempt(Step step);
  void finish(Outcome<HttpResponse> outcome);
  void close();

  void connect();
  void send();
  void awaitBytes();
  void receive();
  bool receivePlainBody();
  bool receiveForParser();

  void noteProgress() { lastProgress_ = std::chrono::steady_clock::now(); }
  void watch();

  LocalRequest request_;
  std::string_view unsent_;
  AnswerBody body_;
  AnswerParser parser_;
  Completed completed_;  // null once it was called or the exchange cancelled
  std::chrono::steady_clock::time_point lastProgress_;
  boost::beast::flat_buffer received_;  // what the parser has not taken
  boost::asio::ip::tcp::socket socket_;
  boost::asio::steady_timer timer_;
};

}  // namespace zunto
