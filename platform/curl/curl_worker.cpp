#include "platform/curl/curl_worker.h"

#include <fcntl.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <limits>
#include <new>
#include <set>
#include <string>

namespace zunto {

namespace {

std::set<int> openDescriptors() {
  std::set<int> open;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator("/dev/fd", ignored)) {
    open.insert(std::atoi(entry.path().filename().c_str()));
  }
  // The one that listed the others is closed by now.
  std::erase_if(open, [](int descriptor) { return ::fcntl(descriptor, F_GETFD) == -1; });
  return open;
}

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

}  // namespace

CurlWorker::Library::Library() {
  // Plain HTTP needs none of the optional parts.
  if (curl_global_init(CURL_GLOBAL_NOTHING) != CURLE_OK)
    throw SystemError("The network could not be set up.");
}

CurlWorker::Library::~Library() { curl_global_cleanup(); }

/// libcurl opens descriptors here that a child process would inherit, and has no option against it.
std::unique_ptr<CURLM, CurlWorker::MultiDeleter> CurlWorker::makeMulti() {
  const std::set<int> before = openDescriptors();
  std::unique_ptr<CURLM, MultiDeleter> multi(curl_multi_init());
  if (!multi) throw std::bad_alloc();
  for (const int descriptor : openDescriptors()) {
    if (!before.contains(descriptor)) ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  }
  return multi;
}

CurlWorker::CurlWorker() {
  const BlockedSignals blocked;
  thread_ = std::thread([this] { run(); });
}

CurlWorker::~CurlWorker() {
  {
    const std::lock_guard lock(mutex_);
    orders_.isStopped = true;
  }
  wakeup_.ring();
  thread_.join();
}

CurlWorker::Id CurlWorker::start(std::unique_ptr<CurlExchange> exchange) {
  const Id id = nextId_++;
  {
    const std::lock_guard lock(mutex_);
    orders_.started.emplace_back(id, std::move(exchange));
  }
  wakeup_.ring();
  return id;
}

void CurlWorker::cancel(Id id) {
  {
    const std::lock_guard lock(mutex_);
    orders_.cancelled.push_back(id);
  }
  wakeup_.ring();
}

void CurlWorker::run() {
  while (true) {
    Orders orders;
    {
      const std::lock_guard lock(mutex_);
      std::swap(orders, orders_);
    }
    if (orders.isStopped) break;
    carryOut(orders);
    int stillRunning = 0;
    curl_multi_perform(multi_.get(), &stillRunning);
    finishEnded();
    timeOutSilent();
    curl_waitfd wake{wakeup_.descriptor(), CURL_WAIT_POLLIN, 0};
    curl_multi_poll(multi_.get(), &wake, 1, millisecondsToDeadline(), nullptr);
    wakeup_.clear();
  }
  while (!running_.empty()) takeRunning(running_.begin()->first);
}

void CurlWorker::carryOut(Orders& orders) {
  for (auto& [id, exchange] : orders.started) {
    const CURLMcode code = curl_multi_add_handle(multi_.get(), exchange->handle());
    if (code != CURLM_OK) throw std::bad_alloc();
    running_.emplace(id, std::move(exchange));
  }
  for (const Id id : orders.cancelled) takeRunning(id);
}

void CurlWorker::finishEnded() {
  int left = 0;
  while (const CURLMsg* const message = curl_multi_info_read(multi_.get(), &left)) {
    if (message->msg != CURLMSG_DONE) continue;
    const CURLcode code = message->data.result;
    const CURL* const handle = message->easy_handle;
    const auto ended = std::find_if(running_.begin(), running_.end(),
                                    [handle](const auto& entry) { return entry.second->handle() == handle; });
    if (ended != running_.end()) takeRunning(ended->first)->finish(code);
  }
}

void CurlWorker::timeOutSilent() {
  const auto now = std::chrono::steady_clock::now();
  std::vector<Id> silent;
  for (const auto& [id, exchange] : running_) {
    if (exchange->deadline() <= now) silent.push_back(id);
  }
  for (const Id id : silent) takeRunning(id)->timeOut();
}

int CurlWorker::millisecondsToDeadline() const {
  using std::chrono::milliseconds;
  constexpr milliseconds longest{std::numeric_limits<int>::max()};
  milliseconds wait = longest;
  const auto now = std::chrono::steady_clock::now();
  for (const auto& [id, exchange] : running_) {
    const auto left = std::max(exchange->deadline() - now, CurlExchange::TimePoint::duration::zero());
    wait = std::min(wait, std::chrono::ceil<milliseconds>(std::min<std::chrono::nanoseconds>(left, longest)));
  }
  return static_cast<int>(wait.count());
}

/// Takes an exchange off the wire; null when it is not on it.
std::unique_ptr<CurlExchange> CurlWorker::takeRunning(Id id) {
  const auto found = running_.find(id);
  if (found == running_.end()) return nullptr;
  std::unique_ptr<CurlExchange> exchange = std::move(found->second);
  running_.erase(found);
  curl_multi_remove_handle(multi_.get(), exchange->handle());
  return exchange;
}

}  // namespace zunto
