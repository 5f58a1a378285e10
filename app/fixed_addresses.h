// The two addresses that the whole program is about. Plain values, made once by the entry.
#pragma once

#include <string_view>

#include "protocol/url.h"

namespace zunto {

struct FixedAddresses {
  Url helperBaseURL;       ///< of the local processor; request paths are appended to it
  Url videoImportPageURL;  ///< the product's web page of the video-import tool
};

/// With the web host that the build was configured with. An address that does not parse is a fatal error.
[[nodiscard]] FixedAddresses fixedAddresses();

/// With another web host.
[[nodiscard]] FixedAddresses fixedAddresses(std::string_view webPageHost);

}  // namespace zunto
