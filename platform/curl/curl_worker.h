// The network thread: it carries out exchanges side by side until they end, time out or are cancelled.
//
// Owner: the HTTP session. Thread: made, used and destroyed on the main thread.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

#include "platform/curl/curl_exchange.h"
#include "platform/curl/wakeup.h"

namespace zunto {

class CurlWorker {
 public:
  using Id = std::uint64_t;

  /// Starts the thread, with every signal blocked: signals are the main thread's. Throws SystemError.
  CurlWorker();
  CurlWorker(const CurlWorker&) = delete;
  CurlWorker& operator=(const CurlWorker&) = delete;

  /// Drops every exchange and joins the thread.
  ~CurlWorker();

  /// Begins `exchange` soon; it reports its end on the network thread.
  Id start(std::unique_ptr<CurlExchange> exchange);

  /// Drops an exchange; nothing when it has ended. It may still report an end that came before.
  void cancel(Id id);

 private:
  /// Keeps libcurl set up as long as any worker lives.
  class Library {
   public:
    Library();
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    ~Library();
  };
  struct MultiDeleter {
    void operator()(CURLM* multi) const noexcept { curl_multi_cleanup(multi); }
  };
  struct Orders {
    std::vector<std::pair<Id, std::unique_ptr<CurlExchange>>> started;
    std::vector<Id> cancelled;
    bool isStopped = false;
  };

  static std::unique_ptr<CURLM, MultiDeleter> makeMulti();

  void run();
  void carryOut(Orders& orders);
  void finishEnded();
  void timeOutSilent();
  [[nodiscard]] int millisecondsToDeadline() const;
  std::unique_ptr<CurlExchange> takeRunning(Id id);

  Library library_;
  std::unique_ptr<CURLM, MultiDeleter> multi_ = makeMulti();
  Wakeup wakeup_;
  Id nextId_ = 0;
  std::map<Id, std::unique_ptr<CurlExchange>> running_;  // network thread only
  std::mutex mutex_;
  Orders orders_;  // under the mutex
  std::thread thread_;
};

}  // namespace zunto
