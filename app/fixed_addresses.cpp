#include "app/fixed_addresses.h"

#include <optional>
#include <string>

#include "async/fatal.h"
#include "web_host.h"

namespace zunto {

namespace {

Url parsedLiteral(const std::string& literal) {
  const std::optional<Url> url = Url::parse(literal);
  if (!url) fatalError("the fixed address " + literal + " is not a URL");
  return *url;
}

}  // namespace

FixedAddresses fixedAddresses() { return fixedAddresses(webHost); }

FixedAddresses fixedAddresses(std::string_view webPageHost) {
  return {
      .helperBaseURL = parsedLiteral("http://127.0.0.1:43127"),
      .videoImportPageURL = parsedLiteral("https://" + std::string(webPageHost) + "/tools/video-import/")};
}

}  // namespace zunto
