#include "system_faults.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>

namespace zunto::testing {
namespace {

struct Fault {
  std::atomic<int> error = 0;
  std::atomic<int> timesLeft = 0;
};

Fault& faultOf(SystemCall call) {
  static std::array<Fault, static_cast<std::size_t>(SystemCall::makePoll) + 1> faults;
  return faults.at(static_cast<std::size_t>(call));
}

/// Whether this call is to fail; errno is set then.
bool fails(SystemCall call) {
  Fault& fault = faultOf(call);
  int left = fault.timesLeft;
  while (left > 0) {
    if (fault.timesLeft.compare_exchange_weak(left, left - 1)) {
      errno = fault.error;
      return true;
    }
  }
  return false;
}

bool isRegularFile(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

bool failsToOpen(int flags) {
  if ((flags & O_TMPFILE) == O_TMPFILE && fails(SystemCall::makeNameless)) return true;
  return fails(SystemCall::open);
}

}  // namespace

SystemFault::SystemFault(SystemCall call, int error, int times) : call_(call), times_(times) {
  faultOf(call).error = error;
  faultOf(call).timesLeft = times;
}

SystemFault::~SystemFault() { faultOf(call_).timesLeft = 0; }

int SystemFault::failures() const { return times_ - faultOf(call_).timesLeft; }

}  // namespace zunto::testing

// The linker's names: with --wrap it gives calls of `open` to __wrap_open and calls of __real_open to the
// system. NOLINTBEGIN(bugprone-reserved-identifier,readability-identifier-naming,cert-dcl50-cpp)
extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_openat(int folder, const char* path, int flags, ...);
ssize_t __real_write(int descriptor, const void* bytes, std::size_t count);
int __real_close(int descriptor);
int __real_renameat2(int from, const char* name, int to, const char* newName, unsigned int flags);
int __real_socket(int domain, int type, int protocol);
int __real_epoll_create1(int flags);
ssize_t __real_splice(int from, off64_t* fromPlace, int to, off64_t* toPlace, std::size_t count,
                      unsigned int flags);

int __wrap_open(const char* path, int flags, ...) {
  if (zunto::testing::failsToOpen(flags)) return -1;
  std::va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return __real_open(path, flags, mode);
}

int __wrap_openat(int folder, const char* path, int flags, ...) {
  if (zunto::testing::failsToOpen(flags)) return -1;
  std::va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return __real_openat(folder, path, flags, mode);
}

ssize_t __wrap_write(int descriptor, const void* bytes, std::size_t count) {
  if (zunto::testing::isRegularFile(descriptor) && zunto::testing::fails(zunto::testing::SystemCall::write)) {
    return -1;
  }
  return __real_write(descriptor, bytes, count);
}

int __wrap_close(int descriptor) {
  const bool isFailing =
      zunto::testing::isRegularFile(descriptor) && zunto::testing::fails(zunto::testing::SystemCall::close);
  const int error = errno;
  const int answer = __real_close(descriptor);
  if (!isFailing) return answer;
  errno = error;
  return -1;
}

int __wrap_renameat2(int from, const char* name, int to, const char* newName, unsigned int flags) {
  if (zunto::testing::fails(zunto::testing::SystemCall::renameExclusive)) return -1;
  return __real_renameat2(from, name, to, newName, flags);
}

ssize_t __wrap_splice(int from, off64_t* fromPlace, int to, off64_t* toPlace, std::size_t count,
                      unsigned int flags) {
  if (zunto::testing::fails(zunto::testing::SystemCall::splice)) return -1;
  return __real_splice(from, fromPlace, to, toPlace, count, flags);
}

int __wrap_socket(int domain, int type, int protocol) {
  if (zunto::testing::fails(zunto::testing::SystemCall::makeSocket)) return -1;
  return __real_socket(domain, type, protocol);
}

int __wrap_epoll_create1(int flags) {
  if (zunto::testing::fails(zunto::testing::SystemCall::makePoll)) return -1;
  return __real_epoll_create1(flags);
}
}
// NOLINTEND(bugprone-reserved-identifier,readability-identifier-naming,cert-dcl50-cpp)
