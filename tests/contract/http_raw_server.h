// A TCP server on 127.0.0.1 that shows the raw bytes of what it is sent and answers with whatever bytes a
// test wants, right or wrong.
//
// Owner: the test. Thread: its conversations run on threads of their own; the rest on the test's thread.
#pragma once

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "platform/posix/descriptor.h"

namespace zunto::testing {

class RawServer {
 public:
  /// One connection, on the thread of its conversation.
  class Connection {
   public:
    Connection(RawServer& server, int socket) : server_(server), socket_(socket) {}

    /// The next request with its body, byte for byte; empty when the client has gone.
    std::string readRequest();

    /// Takes at most `most` bytes that the client has sent, unseen; answers false when the client has gone.
    [[nodiscard]] bool discard(std::size_t most);

    /// Sends all of `bytes`; answers false when the client has gone.
    bool send(std::string_view bytes);

    /// Lets time pass; answers false when the server ends meanwhile.
    [[nodiscard]] bool wait(std::chrono::nanoseconds duration) const;

    /// Waits until the client closes its end or the server ends.
    void waitForClient();

    /// Ends the connection with a reset instead of an orderly close.
    void reset();

   private:
    RawServer& server_;
    Descriptor socket_;
    std::string unread_;
  };

  using Conversation = std::function<void(Connection&)>;

  /// Listens on a free port; every connection is led by `conversation` and closed at its end.
  explicit RawServer(Conversation conversation);
  RawServer(const RawServer&) = delete;
  RawServer& operator=(const RawServer&) = delete;
  ~RawServer();

  [[nodiscard]] int port() const { return port_; }
  [[nodiscard]] std::string url(const std::string& path) const;

  /// Every request so far, byte for byte.
  [[nodiscard]] std::vector<std::string> requests() const;

  /// How many clients have closed their end while the conversation waited for it.
  [[nodiscard]] int departures() const { return departures_; }

 private:
  void acceptClients();

  Conversation conversation_;
  Descriptor listener_;
  int port_ = 0;
  std::atomic<bool> isStopping_ = false;
  std::atomic<int> departures_ = 0;
  mutable std::mutex mutex_;
  std::vector<std::string> requests_;  // under the mutex
  std::list<std::thread> conversations_;
  std::thread acceptor_;
};

/// A whole answer of `body` with its length.
[[nodiscard]] std::string answerOf(std::string_view body, std::string_view status = "200 OK",
                                   std::string_view headers = "");

}  // namespace zunto::testing
