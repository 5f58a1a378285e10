// Links: what is accepted is one to Qt's parser, too, with the same parts.
#include <QString>
#include <QUrl>
#include <QUrlQuery>
#include <algorithm>
#include <optional>
#include <regex>
#include <string>

#include "property.h"
#include "protocol/text.h"
#include "protocol/url.h"

namespace {

using namespace zunto;
using zunto::fuzz::require;

QUrl strictly(const std::string& text) {
  return QUrl(QString::fromLatin1(text.data(), static_cast<qsizetype>(text.size())), QUrl::StrictMode);
}

/// Whether the host is of a kind on which both agree. To the grammar any name is one, and any number is a
/// port; to Qt a host is one of IDN's, and a port has 16 bits.
bool hasPlainHost(const std::string& link) {
  const std::size_t slashes = link.find("//");
  if (slashes == std::string::npos || link.find_first_of("/?#") < slashes) return true;
  const std::string authority =
      link.substr(slashes + 2, link.find_first_of("/?#", slashes + 2) - slashes - 2);
  static const std::regex plain("[a-z0-9]+([.-][a-z0-9]+)*(:[0-9]{1,4})?");
  return authority.size() < 60 && std::regex_match(authority, plain);
}

void checkAppended(std::string_view path) {
  static const Url base = Url::parse("http://127.0.0.1:43127").value();
  const std::string whole = base.appendingPath(path).absoluteString();
  require(whole.starts_with("http://127.0.0.1:43127/"), "a path changes nothing before it: " + whole);
  require(Url::parse(whole).has_value(), "an address with a path is one: " + whole);
  const QUrl seen = strictly(whole);
  require(seen.isValid() && !seen.hasQuery() && !seen.hasFragment(), "a path stays a path to Qt: " + whole);
  if (isUtf8(path)) {
    require(seen.path(QUrl::FullyDecoded).toStdString() == "/" + std::string(path),
            "Qt reads the path that was written: " + whole);
  }
}

void checkQuery(const Url& link, const QUrl& seen) {
  const std::optional<std::string> value = link.firstQueryValue("url");
  const QUrlQuery query(seen);
  const bool isThere = query.hasQueryItem("url");
  const std::string theirs = query.queryItemValue("url", QUrl::FullyDecoded).toStdString();
  if (value) require(isThere && theirs == *value, "Qt reads the same item: " + link.absoluteString());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  checkAppended(text);
  const std::optional<Url> link = Url::parse(text);
  if (!link) {
    const bool isPrintable =
        std::all_of(text.begin(), text.end(), [](char c) { return c > 0x20 && c < 0x7F; });
    require(!isPrintable || !hasPlainHost(std::string(text)) || !strictly(std::string(text)).isValid(),
            "a link to Qt is one: " + std::string(text));
    return 0;
  }
  const std::string& whole = link->absoluteString();
  require(std::all_of(whole.begin(), whole.end(), [](char c) { return c > 0x20 && c < 0x7F; }),
          "a link is ASCII, without blanks");
  const std::optional<Url> again = Url::parse(whole);
  require(again && again->absoluteString() == whole, "a link that was read is read as it stands: " + whole);
  if (!hasPlainHost(whole)) return 0;
  const QUrl seen = strictly(whole);
  require(seen.isValid(), "a link is one to Qt: " + whole + ": " + seen.errorString().toStdString());
  require(seen.scheme().toStdString() ==
              QString::fromStdString(link->scheme().value_or("")).toLower().toStdString(),
          "Qt reads the same scheme: " + whole);
  checkQuery(*link, seen);
  return 0;
}
