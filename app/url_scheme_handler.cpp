// Links of the program's own scheme, zunto-helper:?url=<media link>. The handler only routes; the window's
// flows judge the media link when the user presses Analyze.
#include <optional>
#include <string>

#include "app/helper_delegate.h"
#include "protocol/url.h"

namespace zunto {

namespace {

std::optional<Url> mediaLinkIn(const Url& link) {
  const std::optional<std::string> value = link.firstQueryValue("url");
  return value ? Url::parse(*value) : std::nullopt;
}

}  // namespace

void HelperDelegate::handleURLWithEvent(const UrlEvent& event) {
  mainThread_.check("handleURLWithEvent");
  const UrlEventObject object = event.directObject.value_or(UrlEventObject());
  const std::optional<Url> link = Url::parse(object.stringValue.value_or(std::string()));
  if (!link || link->scheme() != "zunto-helper") return;
  const std::optional<Url> mediaLink = mediaLinkIn(*link);
  if (downloaderWindow) downloaderWindow->present(mediaLink);
}

}  // namespace zunto
