#include "platform/beast/local_request.h"

#include <algorithm>
#include <boost/url/parse.hpp>
#include <boost/url/url_view.hpp>
#include <charconv>
#include <optional>
#include <string_view>
#include <system_error>

#include "platform/system_error.h"

namespace zunto {

namespace {

struct LocalAddress {
  std::uint16_t port = 80;
  std::string authority;  // as the Host header has it
  std::string target;     // path and query
};

[[noreturn]] void failAsNoAddress() { throw SystemError("The address of the request is not valid."); }

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; }

/// The path and query in `text` as they were given, but for characters that no request line can hold.
std::string requestTarget(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string target = text.starts_with('/') ? "" : "/";
  for (const char c : text.substr(0, text.find('#'))) {
    const auto byte = static_cast<unsigned char>(c);
    if (c != ' ' && byte < 0x7F) {
      target += c;
    } else {
      target.append({'%', digits[byte >> 4], digits[byte & 0xF]});
    }
  }
  return target;
}

/// None when it is no port. Not by Boost.URL's own port_number(), which wraps past 65535.
std::optional<std::uint16_t> portOf(std::string_view digits) {
  if (digits.empty()) return std::uint16_t{80};
  std::uint16_t port = 0;
  const auto [end, failure] = std::from_chars(digits.data(), digits.data() + digits.size(), port);
  return failure == std::errc() && port != 0 ? std::optional(port) : std::nullopt;
}

LocalAddress localAddress(std::string_view url) {
  constexpr std::string_view separator = "://";
  const std::size_t scheme = url.find(separator);
  if (scheme == std::string_view::npos || std::any_of(url.begin(), url.end(), isControl)) failAsNoAddress();
  const std::size_t path = std::min(url.find_first_of("/?#", scheme + separator.size()), url.size());
  const std::string origin(url.substr(0, path));
  const auto parsed = boost::urls::parse_uri(origin);
  if (!parsed || parsed->encoded_host().empty()) failAsNoAddress();
  const std::optional<std::uint16_t> port = portOf(parsed->port());
  if (!port) failAsNoAddress();
  if (parsed->scheme() != "http" || parsed->encoded_host() != "127.0.0.1" || parsed->has_userinfo()) {
    throw SystemError("The address of the request is not on this computer.");
  }
  return {*port, std::string(parsed->encoded_host_and_port()), requestTarget(url.substr(path))};
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

void requireSendable(const HttpRequest& request) {
  requireToken(request.method);
  for (const auto& [name, value] : request.headers) {
    requireToken(name);
    // A line break would let a value carry headers of its own.
    if (value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
      throw SystemError("The request has a header value that is not valid.");
    }
  }
}

std::string headerLine(std::string_view name, std::string_view value) {
  std::string line(name);
  line.append(value.empty() ? ":" : ": ").append(value).append("\r\n");
  return line;
}

/// Request line and headers to the empty line. Written here and not by Beast, whose fields lose the blank at
/// the end of a value.
std::string requestHead(const HttpRequest& request, const LocalAddress& address) {
  const auto isNamed = [&request](std::string_view name) {
    return HttpResponseHead{std::nullopt, request.headers}.header(name).has_value();
  };
  std::string head = request.method + ' ' + address.target + " HTTP/1.1\r\n";
  if (!isNamed("Host")) head += headerLine("Host", address.authority);
  if (!isNamed("Accept")) head += headerLine("Accept", "*/*");
  for (const auto& [name, value] : request.headers) head += headerLine(name, value);
  if ((request.body || request.method == "POST") && !isNamed("Content-Length")) {
    head += headerLine("Content-Length", std::to_string(request.body.value_or("").size()));
  }
  return head + "\r\n";
}

}  // namespace

LocalRequest localRequest(const HttpRequest& request) {
  const LocalAddress address = localAddress(request.url);
  requireSendable(request);
  return {request.method, address.port, requestHead(request, address) + request.body.value_or(""),
          request.timeout};
}

}  // namespace zunto
