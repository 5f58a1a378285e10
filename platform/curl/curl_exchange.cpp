#include "platform/curl/curl_exchange.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <new>
#include <utility>

namespace zunto {

namespace {

/// Fewer and larger reads and writes halve the time that a big result takes. libcurl reads no more at once.
constexpr std::size_t downloadBuffer = std::size_t{512} << 10;

constexpr const char* tooLarge = "The answer of the local processor is too large.";
constexpr const char* cutShort = "The answer of the local processor was cut short.";
constexpr const char* notHttp = "The answer of the local processor was not HTTP.";

template <class Value>
void setOption(CURL* easy, CURLoption option, Value value) {
  const CURLcode code = curl_easy_setopt(easy, option, value);
  if (code == CURLE_OUT_OF_MEMORY) throw std::bad_alloc();
  if (code != CURLE_OK) throw SystemError(std::string(curl_easy_strerror(code)) + ".");
}

std::string messageOf(CURLcode code) {
  switch (code) {
    case CURLE_COULDNT_CONNECT:
      return "Could not connect to the local processor.";
    case CURLE_OPERATION_TIMEDOUT:
      return "The request timed out.";
    case CURLE_GOT_NOTHING:
      return "The local processor closed the connection without an answer.";
    case CURLE_PARTIAL_FILE:
      return cutShort;
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
      return "The connection to the local processor was lost.";
    case CURLE_UNSUPPORTED_PROTOCOL:
    case CURLE_WEIRD_SERVER_REPLY:
      return notHttp;
    case CURLE_FILESIZE_EXCEEDED:
      return tooLarge;
    default:
      return std::string(curl_easy_strerror(code)) + ".";
  }
}

/// One part of a parsed address; empty when the address has none.
std::string partOf(CURLU* url, CURLUPart part) {
  char* text = nullptr;
  if (curl_url_get(url, part, &text, 0) != CURLUE_OK) return {};
  std::string value(text);
  curl_free(text);
  return value;
}

CurlUrl localUrl(const std::string& text) {
  CurlUrl url(curl_url());
  if (!url) throw std::bad_alloc();
  // The path goes out as it was given, but for characters that no request line can hold.
  if (curl_url_set(url.get(), CURLUPART_URL, text.c_str(), CURLU_PATH_AS_IS | CURLU_URLENCODE) != CURLUE_OK ||
      text.find('\0') != std::string::npos) {
    throw SystemError("The address of the request is not valid.");
  }
  if (partOf(url.get(), CURLUPART_SCHEME) != "http" || partOf(url.get(), CURLUPART_HOST) != "127.0.0.1" ||
      !partOf(url.get(), CURLUPART_USER).empty() || !partOf(url.get(), CURLUPART_PASSWORD).empty()) {
    throw SystemError("The address of the request is not on this computer.");
  }
  return url;
}

bool isTokenCharacter(char c) {
  constexpr std::string_view others = "!#$%&'*+-.^_`|~";
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
         others.find(c) != std::string_view::npos;
}

void requireToken(std::string_view text) {
  if (text.empty() || !std::all_of(text.begin(), text.end(), isTokenCharacter)) {
    throw SystemError("The request has a method or a header name that is not valid.");
  }
}

void append(CurlList& list, const std::string& line) {
  curl_slist* const longer = curl_slist_append(list.get(), line.c_str());
  if (longer == nullptr) throw std::bad_alloc();
  static_cast<void>(list.release());
  list.reset(longer);
}

bool isHeaderNamed(const HttpHeaders& headers, std::string_view name) {
  return HttpResponseHead{std::nullopt, headers}.header(name).has_value();
}

CurlList headerList(const HttpRequest& request) {
  CurlList list;
  for (const auto& [name, value] : request.headers) {
    requireToken(name);
    // A line break would let a value carry headers of its own.
    if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
      throw SystemError("The request has a header value that is not valid.");
    }
    const bool isBlank = value.find_first_not_of(" \t") == std::string::npos;
    std::string line = name;
    line += isBlank ? ";" : ": " + value;  // "Name: " would mean no such header
    append(list, line);
  }
  append(list, "Expect:");  // no round trip before a body
  if (!isHeaderNamed(request.headers, "Content-Type")) append(list, "Content-Type:");
  return list;
}

/// The second lock on the door: whatever an address means, a connection goes to 127.0.0.1.
curl_socket_t openLocalSocket(void*, curlsocktype, curl_sockaddr* address) noexcept {
  if (address->family != AF_INET) return CURL_SOCKET_BAD;
  const auto* const target = reinterpret_cast<const sockaddr_in*>(&address->addr);
  if (target->sin_addr.s_addr != htonl(INADDR_LOOPBACK)) return CURL_SOCKET_BAD;
#ifdef SOCK_CLOEXEC
  return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, address->protocol);
#else
  const int descriptor = ::socket(AF_INET, SOCK_STREAM, address->protocol);
  if (descriptor >= 0) ::fcntl(descriptor, F_SETFD, FD_CLOEXEC);
  return descriptor;
#endif
}

}  // namespace

CurlExchange::CurlExchange(HttpRequest request, std::size_t memoryLimit,
                           std::unique_ptr<PosixTemporaryFile::Writer> writer, Completed completed)
    : request_(std::move(request)),
      memoryLimit_(memoryLimit),
      writer_(std::move(writer)),
      completed_(std::move(completed)),
      url_(localUrl(request_.url)),
      headers_(headerList(request_)),
      easy_(curl_easy_init()) {
  if (!easy_) throw std::bad_alloc();
  configureRequest();
  configureConnection();
  configureAnswer();
}

void CurlExchange::configureRequest() {
  CURL* const easy = easy_.get();
  requireToken(request_.method);
  setOption(easy, CURLOPT_CURLU, url_.get());
  setOption(easy, CURLOPT_HTTPHEADER, headers_.get());
  if (request_.body || request_.method == "POST") {
    const std::string_view body = request_.body ? std::string_view(*request_.body) : std::string_view();
    setOption(easy, CURLOPT_POST, 1L);
    setOption(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
    setOption(easy, CURLOPT_POSTFIELDS, body.empty() ? "" : body.data());
  } else if (request_.method == "HEAD") {
    setOption(easy, CURLOPT_NOBODY, 1L);
  }
  setOption(easy, CURLOPT_CUSTOMREQUEST, request_.method.c_str());
}

void CurlExchange::configureConnection() {
  CURL* const easy = easy_.get();
  setOption(easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
  setOption(easy, CURLOPT_PROXY, "");
  setOption(easy, CURLOPT_NOPROXY, "*");
  setOption(easy, CURLOPT_FOLLOWLOCATION, 0L);
  setOption(easy, CURLOPT_NETRC, static_cast<long>(CURL_NETRC_IGNORED));
  setOption(easy, CURLOPT_NOSIGNAL, 1L);
  // On a kept connection that has died libcurl silently sends the request a second time.
  setOption(easy, CURLOPT_FRESH_CONNECT, 1L);
  setOption(easy, CURLOPT_FORBID_REUSE, 1L);
  setOption(easy, CURLOPT_OPENSOCKETFUNCTION, &openLocalSocket);
}

void CurlExchange::configureAnswer() {
  CURL* const easy = easy_.get();
  setOption(easy, CURLOPT_PRIVATE, this);
  setOption(easy, CURLOPT_HEADERFUNCTION, &CurlExchange::receiveHeader);
  setOption(easy, CURLOPT_HEADERDATA, this);
  setOption(easy, CURLOPT_WRITEFUNCTION, &CurlExchange::receiveBody);
  setOption(easy, CURLOPT_WRITEDATA, this);
  if (writer_) {
    setOption(easy, CURLOPT_BUFFERSIZE, static_cast<long>(downloadBuffer));
    body_.reserve(downloadBuffer);
  } else {
    setOption(easy, CURLOPT_MAXFILESIZE_LARGE, static_cast<curl_off_t>(memoryLimit_));
  }
}

std::size_t CurlExchange::receiveHeader(char* bytes, std::size_t, std::size_t count, void* self) noexcept {
  static_cast<CurlExchange*>(self)->takeHeaderLine({bytes, count});
  return count;
}

void CurlExchange::takeHeaderLine(std::string_view line) {
  lastProgress_ = std::chrono::steady_clock::now();
  if (line.starts_with("HTTP/")) isHeadComplete_ = false;
  if (line == "\r\n" || line == "\n") isHeadComplete_ = true;
}

std::size_t CurlExchange::receiveBody(char* bytes, std::size_t, std::size_t count, void* self) noexcept {
  auto* const exchange = static_cast<CurlExchange*>(self);
  try {
    exchange->takeBody({bytes, count});
  } catch (const SystemError& failure) {
    exchange->failure_ = failure;
    return CURL_WRITEFUNC_ERROR;
  }
  return count;
}

void CurlExchange::takeBody(std::string_view bytes) {
  const std::size_t limit = writer_ ? downloadBuffer : memoryLimit_;
  if (bytes.size() > limit - body_.size()) {
    if (!writer_) throw SystemError(tooLarge);
    flush();
  }
  body_ += bytes;
  lastProgress_ = std::chrono::steady_clock::now();
}

void CurlExchange::flush() {
  writer_->write(body_);
  body_.clear();
}

void CurlExchange::finish(CURLcode code) { completed_(outcome(code)); }

Outcome<HttpResponse> CurlExchange::outcome(CURLcode code) {
  if (failure_) return *failure_;
  if (code != CURLE_OK) return SystemError(messageOf(code));
  // libcurl takes a connection that ends within the headers for a whole answer.
  if (!isHeadComplete_) return SystemError(cutShort);
  try {
    if (writer_) {
      flush();
      writer_->close();
    }
  } catch (const SystemError& failure) {
    return failure;
  }
  HttpResponse response{head(), std::move(body_)};
  if (!response.head.status) return SystemError(notHttp);
  return response;
}

HttpResponseHead CurlExchange::head() const {
  HttpResponseHead head;
  long status = 0;
  if (curl_easy_getinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status) == CURLE_OK && status > 0) {
    head.status = static_cast<int>(status);
  }
  constexpr int finalAnswer = -1;
  curl_header* header = nullptr;
  while ((header = curl_easy_nextheader(easy_.get(), CURLH_HEADER, finalAnswer, header)) != nullptr) {
    // Of an empty value some versions of libcurl leave the end of its line.
    std::string_view value = header->value;
    while (value.ends_with('\r') || value.ends_with('\n')) value.remove_suffix(1);
    head.headers.emplace_back(header->name, value);
  }
  return head;
}

}  // namespace zunto
