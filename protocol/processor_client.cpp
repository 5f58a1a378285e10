#include "protocol/processor_client.h"

#include <functional>
#include <utility>

#include "async/callback_await.h"
#include "protocol/helper_error.h"

namespace zunto {

namespace {

bool isSuccess(const HttpResponseHead& head) {
  return head.status && *head.status >= 200 && *head.status <= 299;
}

HelperError processorFailure(const std::string& answer) {
  try {
    return {HelperErrorCode::processorError, decodeRecord<HelperErrorBody>(answer).error.message};
  } catch (const DecodingError&) {
    return HelperError(HelperErrorCode::processorError);
  }
}

Task<HttpResponse> sendOnce(HttpSession& session, HttpRequest request) {
  using Answer = Outcome<HttpResponse>;
  Answer answer = co_await awaitCallback<Answer>([&session, &request](Completion<Answer> done) {
    return session.send(std::move(request), std::move(done));
  });
  co_return valueOrThrow(std::move(answer));
}

Task<HttpDownload> downloadOnce(HttpSession& session, HttpRequest request, std::filesystem::path folder) {
  using Answer = Outcome<HttpDownload>;
  Answer answer = co_await awaitCallback<Answer>([&session, &request, &folder](Completion<Answer> done) {
    return session.download(std::move(request), std::move(folder), std::move(done));
  });
  co_return valueOrThrow(std::move(answer));
}

}  // namespace

ProcessorClient::ProcessorClient(Url baseUrl, HttpSession& session, const std::string& sessionToken)
    : baseUrl_(std::move(baseUrl)), session_(session), sessionToken_(sessionToken) {}

HttpRequest ProcessorClient::buildRequest(const std::string& path, HttpMethod method,
                                          const std::optional<RequestBody>& body) const {
  HttpRequest request;
  request.url = baseUrl_.appendingPath(path).absoluteString();
  request.headers.emplace_back("Content-Type", "application/json");
  if (method == HttpMethod::post) {
    request.method = "POST";
    request.body = serialize(body.value_or(RequestBody()));
    // The processor authorises only what changes state; an empty token is sent as it is, for it to refuse.
    request.headers.emplace_back("Authorization", "Bearer " + sessionToken_);
  }
  return request;
}

HttpRequest ProcessorClient::plainFetch(const std::string& path) const {
  HttpRequest request;
  request.url = baseUrl_.appendingPath(path).absoluteString();
  return request;
}

Task<std::string> ProcessorClient::exchange(std::string path, HttpMethod method,
                                            std::optional<RequestBody> body) const {
  const Task<HttpResponse> sending = sendOnce(session_, buildRequest(path, method, body));
  HttpResponse answer = co_await sending;
  if (!isSuccess(answer.head)) throw processorFailure(answer.body);
  co_return std::move(answer.body);
}

Task<HttpResponseHead> ProcessorClient::fetchHealth() const {
  const Task<HttpResponse> fetch = sendOnce(session_, plainFetch("health"));
  const HttpResponse answer = co_await fetch;
  co_return answer.head;
}

Task<std::unique_ptr<TemporaryFile>> ProcessorClient::fetchResult(std::string jobId,
                                                                  std::filesystem::path folder) const {
  const Task<HttpDownload> fetch =
      downloadOnce(session_, plainFetch("jobs/" + jobId + "/result"), std::move(folder));
  HttpDownload answer = co_await fetch;
  if (answer.head.status != 200) throw HelperError(HelperErrorCode::unreadableResult);
  co_return std::move(answer.file);
}

}  // namespace zunto
