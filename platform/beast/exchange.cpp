#include "platform/beast/exchange.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <boost/asio/buffer.hpp>
#include <boost/asio/error.hpp>
#include <cerrno>
#include <cstddef>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "platform/posix/system_failure.h"
#include "platform/system_error.h"

namespace zunto {

namespace {

namespace asio = boost::asio;
using asio::ip::tcp;
using boost::system::error_code;

/// What is read at once for the parser. The parser leaves no more than a head, so the buffer has a bound.
constexpr std::size_t readSize = std::size_t{64} << 10;

/// A socket that no child process inherits, which Asio's own would be.
int openSocket() {
#ifdef SOCK_CLOEXEC
  const int descriptor = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
#else
  const int descriptor = ::socket(AF_INET, SOCK_STREAM, 0);
  if (descriptor >= 0) ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
#endif
  if (descriptor < 0) throw systemFailure("The network could not be set up", errno);
#ifdef SO_NOSIGPIPE
  const int on = 1;
  ::setsockopt(descriptor, SOL_SOCKET, SO_NOSIGPIPE, &on, sizeof on);
#endif
  return descriptor;
}

bool isNothingThere(const error_code& failure) {
  return failure == asio::error::would_block || failure == asio::error::try_again ||
         failure == asio::error::interrupted;
}

}  // namespace

Exchange::Exchange(asio::io_context& context, LocalRequest request, AnswerBody body, Completed completed)
    : request_(std::move(request)),
      unsent_(request_.bytes),
      body_(std::move(body)),
      parser_(request_.method, [this](std::string_view bytes) { body_.append(bytes); }),
      completed_(std::move(completed)),
      received_(AnswerParser::largestHead + readSize),
      socket_(context),
      timer_(context) {}

void Exchange::start() {
  noteProgress();
  watch();
  attempt([this] { connect(); });
}

void Exchange::cancel() {
  completed_ = nullptr;
  close();
}

/// Runs `step` unless all is over; what it throws is the end.
template <class Step>
void Exchange::attempt(Step step) {
  if (!completed_) return;
  try {
    step();
  } catch (const SystemError& failure) {
    finish(failure);
  }
}

void Exchange::finish(Outcome<HttpResponse> outcome) {
  const Completed completed = std::exchange(completed_, nullptr);
  close();
  completed(std::move(outcome));
}

/// What is under way ends with a failure that nobody looks at.
void Exchange::close() {
  error_code ignored;
  socket_.close(ignored);
  timer_.cancel();
}

void Exchange::connect() {
  const int descriptor = openSocket();
  error_code failure;
  socket_.assign(tcp::v4(), descriptor, failure);
  if (failure) {
    ::close(descriptor);
    throw systemFailure("The network could not be set up", failure.value());
  }
  socket_.non_blocking(true, failure);
  const tcp::endpoint processor(asio::ip::address_v4::loopback(), request_.port);
  socket_.async_connect(processor, [self = shared_from_this()](const error_code& refusal) {
    self->attempt([&] {
      if (refusal) throw SystemError("Could not connect to the local processor.");
      self->noteProgress();
      self->awaitBytes();
      self->send();
    });
  });
}

/// Goes on beside the receiving: an answer may come before the request has gone out. So what goes wrong here
/// is left for the receiving to see.
void Exchange::send() {
  error_code failure;
  const std::size_t count = socket_.write_some(asio::buffer(unsent_), failure);
  unsent_.remove_prefix(count);
  if (count > 0) noteProgress();
  if (unsent_.empty() || (failure && !isNothingThere(failure))) return;
  socket_.async_wait(tcp::socket::wait_write, [self = shared_from_this()](const error_code&) {
    self->attempt([&] { self->send(); });
  });
}

/// Before every piece, also when more is there already: other exchanges and cancellations have their turn.
void Exchange::awaitBytes() {
  socket_.async_wait(tcp::socket::wait_read, [self = shared_from_this()](const error_code&) {
    self->attempt([&] { self->receive(); });
  });
}

void Exchange::receive() {
  const bool isEnded = body_.isFile() && parser_.plainBody() ? !receivePlainBody() : !receiveForParser();
  if (isEnded && !parser_.isWhole()) parser_.takeEnd();
  if (!parser_.isWhole()) return awaitBytes();
  std::string body = body_.finish();
  finish(HttpResponse{parser_.head(), std::move(body)});
}

/// Past the parser, whose business it is not; false at the end of the connection.
bool Exchange::receivePlainBody() {
  const std::uint64_t most = parser_.plainBody()->left.value_or(std::numeric_limits<std::uint64_t>::max());
  const std::optional<std::size_t> count = body_.appendFrom(socket_.native_handle(), most);
  if (!count) return true;
  parser_.pass(*count);
  noteProgress();  // after the file has taken it: a slow disk is not the processor's silence
  return *count > 0;
}

bool Exchange::receiveForParser() {
  error_code failure;
  const std::size_t count = socket_.read_some(received_.prepare(readSize), failure);
  if (isNothingThere(failure)) return true;
  if (failure == asio::error::eof) return false;
  if (failure) throw SystemError("The connection to the local processor was lost.");
  received_.commit(count);
  const auto unread = received_.cdata();
  received_.consume(parser_.take({static_cast<const char*>(unread.data()), unread.size()}));
  if (const auto plain = parser_.plainBody(); plain && plain->left) body_.expect(*plain->left);
  noteProgress();
  return true;
}

/// Ends the exchange when nothing has moved for too long.
void Exchange::watch() {
  timer_.expires_at(lastProgress_ + request_.timeout);
  timer_.async_wait([self = shared_from_this()](const error_code&) {
    self->attempt([&] {
      const auto deadline = self->lastProgress_ + self->request_.timeout;
      if (std::chrono::steady_clock::now() >= deadline) throw SystemError("The request timed out.");
      self->watch();
    });
  });
}

}  // namespace zunto
