#include "platform/posix/proxy_exemption.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string_view>

#include "platform/posix/system_failure.h"

namespace zunto {
namespace {

constexpr const char* lowerCaseName = "no_proxy";
constexpr const char* upperCaseName = "NO_PROXY";

/// Empty counts as not set, as it does for curl.
std::string valueOf(const char* name) {
  const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): before there are threads
  return value ? value : "";
}

bool names(std::string_view list, std::string_view host) {
  constexpr std::string_view blanks = " \t";
  while (!list.empty()) {
    std::string_view entry = list.substr(0, list.find(','));
    list.remove_prefix(entry.size() < list.size() ? entry.size() + 1 : entry.size());
    entry.remove_prefix(std::min(entry.find_first_not_of(blanks), entry.size()));
    entry.remove_suffix(entry.size() - (entry.find_last_not_of(blanks) + 1));
    if (entry == host) return true;
  }
  return false;
}

/// `list` with `host`. An asterisk that stands alone exempts every host, and beside another entry it would
/// exempt none.
std::string withHost(const std::string& list, const std::string& host) {
  if (list.empty()) return host;
  if (list == "*" || names(list, host)) return list;
  return list + ',' + host;
}

void set(const char* name, const std::string& value) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): before there are threads
  if (::setenv(name, value.c_str(), 1) != 0) {
    throw systemFailure("The variable " + std::string(name) + " could not be set", errno);
  }
}

}  // namespace

// Most programs read one of the two and look at the other only where the first is not set. One that is set
// alone would be hidden by a new one beside it, so a new one begins with what the other says.
void exemptFromProxies(const std::string& host) {
  const std::string lowerCase = valueOf(lowerCaseName);
  const std::string upperCase = valueOf(upperCaseName);
  set(lowerCaseName, withHost(lowerCase.empty() ? upperCase : lowerCase, host));
  set(upperCaseName, withHost(upperCase.empty() ? lowerCase : upperCase, host));
}

}  // namespace zunto
