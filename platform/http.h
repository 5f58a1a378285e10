// The shared HTTP session: plain requests to the loopback interface.
//
// It talks to 127.0.0.1 only, ignores the proxies of the environment, follows no redirect, keeps no cookie
// and sends every request once. Owner: the program's entry; outlives the logic. Thread: main thread only,
// callbacks included; the network work has a thread of its own.
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "async/interface.h"
#include "platform/outcome.h"
#include "platform/temporary_file.h"

namespace zunto {

using HttpHeaders = std::vector<std::pair<std::string, std::string>>;

struct HttpRequest {
  std::string method = "GET";
  std::string url;      ///< absolute
  HttpHeaders headers;  ///< sent as they are, an empty or blank-ended value included
  std::optional<std::string> body;
  std::chrono::seconds timeout{60};  ///< without any progress
};

/// Status line and headers of an answer. `status` is none when the answer was not HTTP; headers and body are
/// then empty.
struct HttpResponseHead {
  std::optional<int> status;
  HttpHeaders headers;

  /// The value of the first header of that name, letter case ignored; none when there is none.
  [[nodiscard]] std::optional<std::string> header(std::string_view name) const;
};

struct HttpResponse {
  HttpResponseHead head;
  std::string body;
};

struct HttpDownload {
  HttpResponseHead head;
  std::unique_ptr<TemporaryFile> file;  ///< the answer's whole body
};

/// A request under way. Destroying it ends the request; nothing is called back afterwards and what a download
/// has written is removed.
class HttpTransfer : public Interface {};

class HttpSession : public Interface {
 public:
  /// Sends `request` and calls `done` once on a later turn, with the answer held in memory (at most 64 MiB of
  /// body) or the failure.
  [[nodiscard]] virtual std::unique_ptr<HttpTransfer> send(
      HttpRequest request, std::function<void(Outcome<HttpResponse>)> done) = 0;

  /// The same with the answer's body written to a hidden temporary file in `folder`. Memory use does not grow
  /// with the body.
  [[nodiscard]] virtual std::unique_ptr<HttpTransfer> download(
      HttpRequest request, std::filesystem::path folder, std::function<void(Outcome<HttpDownload>)> done) = 0;
};

}  // namespace zunto
