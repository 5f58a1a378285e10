// What a platform operation fails with: the system's own sentence, fit to be shown to the user.
// Plain value; any thread.
#pragma once

#include "async/error.h"

namespace zunto {

class SystemError : public Error {
 public:
  using Error::Error;
};

}  // namespace zunto
