#include "http_raw_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <charconv>
#include <stdexcept>
#include <utility>

namespace zunto::testing {

namespace {

using namespace std::chrono_literals;

constexpr int pollMilliseconds = 10;  // how late a conversation may notice that the server ends

bool isReadable(int socket) {
  pollfd waited{socket, POLLIN, 0};
  return ::poll(&waited, 1, pollMilliseconds) > 0;
}

std::size_t contentLength(std::string_view head) {
  constexpr std::string_view name = "Content-Length: ";
  const std::size_t found = head.find(name);
  std::size_t length = 0;
  if (found != std::string_view::npos) {
    const std::string_view digits = head.substr(found + name.size());
    std::from_chars(digits.data(), digits.data() + digits.size(), length);
  }
  return length;
}

}  // namespace

std::string answerOf(std::string_view body, std::string_view status, std::string_view headers) {
  return "HTTP/1.1 " + std::string(status) + "\r\n" + std::string(headers) +
         "Content-Length: " + std::to_string(body.size()) + "\r\n\r\n" + std::string(body);
}

std::string RawServer::Connection::readRequest() {
  std::array<char, 65536> bytes{};
  while (!server_.isStopping_) {
    const std::size_t headEnd = unread_.find("\r\n\r\n");
    if (headEnd != std::string::npos) {
      const std::size_t length = headEnd + 4 + contentLength(std::string_view(unread_).substr(0, headEnd));
      if (unread_.size() >= length) {
        std::string request = unread_.substr(0, length);
        unread_.erase(0, length);
        const std::lock_guard lock(server_.mutex_);
        server_.requests_.push_back(request);
        return request;
      }
    }
    if (!isReadable(socket_.number())) continue;
    const ssize_t count = ::recv(socket_.number(), bytes.data(), bytes.size(), 0);
    if (count <= 0) return {};
    unread_.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return {};
}

bool RawServer::Connection::discard(std::size_t most) {
  std::string bytes(most, '\0');
  while (!server_.isStopping_ && !isReadable(socket_.number())) {
  }
  return !server_.isStopping_ && ::recv(socket_.number(), bytes.data(), bytes.size(), 0) > 0;
}

bool RawServer::Connection::send(std::string_view bytes) {
  while (!bytes.empty() && !server_.isStopping_) {
    pollfd waited{socket_.number(), POLLOUT, 0};
    if (::poll(&waited, 1, pollMilliseconds) <= 0) continue;
    const ssize_t count = ::send(socket_.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return bytes.empty();
}

bool RawServer::Connection::wait(std::chrono::nanoseconds duration) const {
  const auto end = std::chrono::steady_clock::now() + duration;
  while (!server_.isStopping_ && std::chrono::steady_clock::now() < end) std::this_thread::sleep_for(2ms);
  return !server_.isStopping_;
}

void RawServer::Connection::waitForClient() {
  char byte = 0;
  while (!server_.isStopping_) {
    if (isReadable(socket_.number()) && ::recv(socket_.number(), &byte, 1, 0) <= 0) {
      ++server_.departures_;
      return;
    }
  }
}

void RawServer::Connection::reset() {
  const linger none{1, 0};
  ::setsockopt(socket_.number(), SOL_SOCKET, SO_LINGER, &none, sizeof none);
  socket_.close();
}

RawServer::RawServer(Conversation conversation)
    : conversation_(std::move(conversation)), listener_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  auto* const generic = reinterpret_cast<sockaddr*>(&address);
  if (::bind(listener_.number(), generic, length) != 0 || ::listen(listener_.number(), 64) != 0 ||
      ::getsockname(listener_.number(), generic, &length) != 0) {
    throw std::runtime_error("the test's server cannot listen");
  }
  port_ = ntohs(address.sin_port);
  acceptor_ = std::thread([this] { acceptClients(); });
}

RawServer::~RawServer() {
  isStopping_ = true;
  acceptor_.join();
  for (std::thread& conversation : conversations_) conversation.join();
}

std::string RawServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(port_) + path;
}

std::vector<std::string> RawServer::requests() const {
  const std::lock_guard lock(mutex_);
  return requests_;
}

void RawServer::acceptClients() {
  while (!isStopping_) {
    if (!isReadable(listener_.number())) continue;
    const int socket = ::accept4(listener_.number(), nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) continue;
    conversations_.emplace_back([this, socket] {
      Connection connection(*this, socket);
      conversation_(connection);
    });
  }
}

}  // namespace zunto::testing
