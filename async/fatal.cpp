#include "async/fatal.h"

#include <cstdio>
#include <cstdlib>

namespace zunto {

void fatalError(std::string_view reason) noexcept {
  std::fprintf(stderr, "zunto-helper: fatal error: %.*s\n", static_cast<int>(reason.size()), reason.data());
  std::abort();
}

}  // namespace zunto
