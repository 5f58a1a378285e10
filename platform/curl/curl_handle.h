// Owning handles of libcurl's objects. Plain values; one thread at a time.
#pragma once

#include <curl/curl.h>

#include <memory>

namespace zunto {

struct CurlDeleter {
  void operator()(CURL* easy) const noexcept { curl_easy_cleanup(easy); }
  void operator()(CURLU* url) const noexcept { curl_url_cleanup(url); }
  void operator()(curl_slist* list) const noexcept { curl_slist_free_all(list); }
};

using CurlEasy = std::unique_ptr<CURL, CurlDeleter>;
using CurlUrl = std::unique_ptr<CURLU, CurlDeleter>;
using CurlList = std::unique_ptr<curl_slist, CurlDeleter>;

}  // namespace zunto
