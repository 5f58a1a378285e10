// The client side of the conversation with the local processor: how each request is built, and how its answer
// is judged and becomes a record or an error. Every request is sent once; repeating is the caller's.
//
// Owner: the import window's controller, whose tasks keep it alive while a request runs. Thread: main thread
// only.
#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "async/task.h"
#include "platform/http.h"
#include "protocol/decoding.h"
#include "protocol/request_body.h"
#include "protocol/url.h"

namespace zunto {

enum class HttpMethod { get, post };

class ProcessorClient {
 public:
  /// `session` and `sessionToken` must outlive this object; the token is read anew for every POST.
  ProcessorClient(Url baseUrl, HttpSession& session, const std::string& sessionToken);

  /// Sends one request and decodes its answer as a T (see decodeRecord). `path` is relative to the base
  /// address. A POST carries `body` and the token, a GET neither. Throws SystemError (transport),
  /// EncodingError (nothing is sent), DecodingError (an answer of 200 to 299 that is no T), HelperError (any
  /// other answer), Cancelled.
  template <class T>
  Task<T> request(std::string path, HttpMethod method, std::optional<RequestBody> body) const {
    const Task<std::string> exchanging = exchange(std::move(path), method, std::move(body));
    const std::string answer = co_await exchanging;
    co_return decodeRecord<T>(answer);
  }

  /// The head of the health answer, whatever its status. Throws SystemError, Cancelled.
  [[nodiscard]] Task<HttpResponseHead> fetchHealth() const;

  /// The finished file of a job, in a hidden temporary file in `folder`. Throws SystemError, Cancelled, and
  /// HelperError (unreadableResult) unless the status is exactly 200.
  [[nodiscard]] Task<std::unique_ptr<TemporaryFile>> fetchResult(std::string jobId,
                                                                 std::filesystem::path folder) const;

 private:
  [[nodiscard]] HttpRequest buildRequest(const std::string& path, HttpMethod method,
                                         const std::optional<RequestBody>& body) const;
  [[nodiscard]] Task<std::string> exchange(std::string path, HttpMethod method,
                                           std::optional<RequestBody> body) const;
  [[nodiscard]] HttpRequest plainFetch(const std::string& path) const;

  Url baseUrl_;
  HttpSession& session_;
  const std::string& sessionToken_;
};

}  // namespace zunto
