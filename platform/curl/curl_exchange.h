// One request and its answer as a libcurl transfer: what is sent, where the body goes, how long silence is
// borne, and what the end means.
//
// Owner: made on the main thread, then handed to the network thread, which alone touches it from then on.
// Destroying it closes the connection.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/curl/curl_handle.h"
#include "platform/http.h"
#include "platform/posix/posix_temporary_file.h"

namespace zunto {

class CurlExchange {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  /// Called once on the network thread with the answer, its body empty when it went to a file.
  using Completed = std::function<void(Outcome<HttpResponse>)>;

  /// The body is kept in memory, at most `memoryLimit` bytes of it, unless there is a `writer` for it. Throws
  /// SystemError when the request cannot be sent as it stands, such as to another host than 127.0.0.1.
  CurlExchange(HttpRequest request, std::size_t memoryLimit,
               std::unique_ptr<PosixTemporaryFile::Writer> writer, Completed completed);
  CurlExchange(const CurlExchange&) = delete;
  CurlExchange& operator=(const CurlExchange&) = delete;
  ~CurlExchange() = default;

  [[nodiscard]] CURL* handle() const { return easy_.get(); }

  /// The moment at which the request has timed out unless something arrives before.
  [[nodiscard]] TimePoint deadline() const { return lastProgress_ + request_.timeout; }

  /// Reports the end that libcurl tells.
  void finish(CURLcode code);

  /// Reports that the deadline has passed.
  void timeOut() { completed_(SystemError("The request timed out.")); }

 private:
  void configureRequest();
  void configureConnection();
  void configureAnswer();
  [[nodiscard]] Outcome<HttpResponse> outcome(CURLcode code);
  [[nodiscard]] HttpResponseHead head() const;

  static std::size_t receiveHeader(char* bytes, std::size_t size, std::size_t count, void* self) noexcept;
  static std::size_t receiveBody(char* bytes, std::size_t size, std::size_t count, void* self) noexcept;
  void takeHeaderLine(std::string_view line);
  void takeBody(std::string_view bytes);
  void flush();

  HttpRequest request_;
  std::size_t memoryLimit_;
  std::unique_ptr<PosixTemporaryFile::Writer> writer_;
  Completed completed_;
  TimePoint lastProgress_ = std::chrono::steady_clock::now();
  bool isHeadComplete_ = false;
  std::string body_;  // what is not yet written, when there is a writer
  std::optional<SystemError> failure_;
  CurlUrl url_;
  CurlList headers_;
  CurlEasy easy_;  // last: it refers to the others until it is gone
};

}  // namespace zunto
