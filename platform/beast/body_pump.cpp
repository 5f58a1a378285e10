#include "platform/beast/body_pump.h"

#include <fcntl.h>
#include <sys/types.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>

#include "platform/posix/system_failure.h"
#include "platform/system_error.h"

namespace zunto {

namespace {

/// What goes at once; more makes neither way faster.
constexpr std::size_t pipeSize = std::size_t{1} << 20;
constexpr std::size_t bufferSize = std::size_t{512} << 10;

#ifdef __linux__
std::array<int, 2> openPipe() {
  std::array<int, 2> ends{-1, -1};
  // Without a pipe, or with a smaller one, it goes on all the same.
  if (::pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) == 0) {
    ::fcntl(ends[1], F_SETPIPE_SZ, static_cast<int>(pipeSize));
  }
  return ends;
}

ssize_t spliceBytes(int from, int to, std::size_t count) {
  return ::splice(from, nullptr, to, nullptr, count, SPLICE_F_MOVE | SPLICE_F_NONBLOCK);
}
#else
std::array<int, 2> openPipe() { return {-1, -1}; }

ssize_t spliceBytes(int, int, std::size_t) {
  errno = ENOSYS;
  return -1;
}
#endif

/// Whether the call is refused as such: by the system, a sandbox, or for this kind of file.
bool isRefusal(int error) { return error == EINVAL || error == ENOSYS || error == EPERM; }

/// What a read from the connection has answered.
std::optional<std::size_t> arrived(ssize_t count) {
  if (count >= 0) return static_cast<std::size_t>(count);
  if (errno == EAGAIN || errno == EINTR) return std::nullopt;
  throw SystemError("The connection to the local processor was lost.");
}

}  // namespace

BodyPump::BodyPump(Method method) {
  if (method == Method::copy) return;
  const std::array<int, 2> ends = openPipe();
  exit_ = Descriptor(ends[0]);
  entry_ = Descriptor(ends[1]);
}

std::optional<std::size_t> BodyPump::move(int socket, PosixTemporaryFile::Writer& file, std::uint64_t most) {
  if (!entry_.isOpen()) return copy(socket, file, most);
  const ssize_t count =
      spliceBytes(socket, entry_.number(), static_cast<std::size_t>(std::min<std::uint64_t>(most, pipeSize)));
  if (count < 0 && isRefusal(errno)) {
    entry_.close();
    return copy(socket, file, most);
  }
  const std::optional<std::size_t> moved = arrived(count);
  if (moved) empty(*moved, file);
  return moved;
}

/// Moves the `count` bytes that stand in the pipe to the file.
void BodyPump::empty(std::size_t count, PosixTemporaryFile::Writer& file) {
  while (count > 0) {
    const ssize_t moved = spliceBytes(exit_.number(), file.descriptor(), count);
    if (moved >= 0) {
      count -= static_cast<std::size_t>(moved);
    } else if (isRefusal(errno)) {
      entry_.close();
      count -= copy(exit_.number(), file, count).value_or(0);
    } else if (errno != EINTR) {
      throw systemFailure("The file could not be written", errno);
    }
  }
}

std::optional<std::size_t> BodyPump::copy(int source, PosixTemporaryFile::Writer& file, std::uint64_t most) {
  buffer_.resize(bufferSize);
  const auto room = static_cast<std::size_t>(std::min<std::uint64_t>(most, bufferSize));
  const std::optional<std::size_t> count = arrived(::read(source, buffer_.data(), room));
  file.write(std::string_view(buffer_.data(), count.value_or(0)));
  return count;
}

}  // namespace zunto
