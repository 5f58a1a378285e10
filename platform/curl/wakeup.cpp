#include "platform/curl/wakeup.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>

#include "platform/system_error.h"

namespace zunto {

Wakeup::Wakeup() {
#ifdef __linux__
  const bool isMade = ::pipe2(ends_.data(), O_CLOEXEC | O_NONBLOCK) == 0;
#else
  const bool isMade = ::pipe(ends_.data()) == 0;
#endif
  if (!isMade) throw SystemError("The network could not be set up: too many files are open.");
#ifndef __linux__
  for (const int end : ends_) {
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
    ::fcntl(end, F_SETFL, O_NONBLOCK);
  }
#endif
}

Wakeup::~Wakeup() {
  for (const int end : ends_) ::close(end);
}

void Wakeup::ring() const {
  // A full pipe is readable already.
  [[maybe_unused]] const ssize_t written = ::write(ends_[1], "!", 1);
}

void Wakeup::clear() const {
  std::array<char, 64> bytes{};
  while (::read(ends_[0], bytes.data(), bytes.size()) > 0) {
  }
}

}  // namespace zunto
