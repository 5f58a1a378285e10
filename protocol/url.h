// A web address as text that a URL parser has accepted.
//
// The text is taken as a browser's address bar gives it: characters that a link may show but not carry
// (non-ASCII ones, and the few that browsers leave bare, such as "|") are percent-encoded on the way in. The
// scheme stays as written. Plain value; any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace zunto {

class Url {
 public:
  /// None when `text` (UTF-8) is no URL: empty, with blanks or control characters inside, or malformed. A
  /// relative one is accepted; it has no scheme.
  [[nodiscard]] static std::optional<Url> parse(std::string_view text);

  /// The whole address, ASCII only.
  [[nodiscard]] const std::string& absoluteString() const { return text_; }

  /// As written, without the colon; none for a relative address.
  [[nodiscard]] std::optional<std::string> scheme() const;

  /// The decoded value of the first query item of exactly that name. "+" stays a plus. None when there is no
  /// such item, it has no value, or its value is not UTF-8.
  [[nodiscard]] std::optional<std::string> firstQueryValue(std::string_view name) const;

  /// This address with the components of `path` ("jobs/7/cancel") behind its own path. Characters that may
  /// not stand in a path are percent-encoded. Query and fragment of this address must be absent.
  [[nodiscard]] Url appendingPath(std::string_view path) const;

 private:
  explicit Url(std::string text) : text_(std::move(text)) {}
  std::string text_;
};

}  // namespace zunto
