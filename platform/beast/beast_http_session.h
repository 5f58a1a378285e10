// The HTTP session on Boost.Asio and Boost.Beast, with a network thread of its own.
//
// Owner: the program's entry. Thread: made, used and destroyed on the main thread; completions come back
// through Clock::post.
#pragma once

#include <cstddef>
#include <filesystem>
#include <functional>
#include <memory>

#include "async/clock.h"
#include "platform/beast/body_pump.h"
#include "platform/http.h"

namespace zunto {

class NetworkThread;

struct BeastHttpOptions {
  /// The most bytes of body that send() holds in memory; past it the request fails.
  std::size_t memoryLimit = std::size_t{64} << 20;

  /// How download() brings a body without chunks into its file.
  BodyPump::Method pumping = BodyPump::Method::splice;
};

class BeastHttpSession final : public HttpSession {
 public:
  /// Starts the network thread. `clock` must outlive this object. Throws SystemError when the system has no
  /// descriptors or threads left.
  explicit BeastHttpSession(Clock& clock, BeastHttpOptions options = {});
  BeastHttpSession(const BeastHttpSession&) = delete;
  BeastHttpSession& operator=(const BeastHttpSession&) = delete;

  /// Ends every request and joins the thread; nothing is called back afterwards. The transfers that are left
  /// may be dropped at any time.
  ~BeastHttpSession() override;

  [[nodiscard]] std::unique_ptr<HttpTransfer> send(HttpRequest request,
                                                   std::function<void(Outcome<HttpResponse>)> done) override;

  /// The file is made before anything is sent: where that fails, so does the download, without a request.
  [[nodiscard]] std::unique_ptr<HttpTransfer> download(
      HttpRequest request, std::filesystem::path folder,
      std::function<void(Outcome<HttpDownload>)> done) override;

 private:
  class Transfer;

  Clock& clock_;
  BeastHttpOptions options_;
  std::shared_ptr<NetworkThread> network_;  // never shared for longer than a turn of the main thread
};

}  // namespace zunto
