// Moves the bytes of a body from a connection to a file: inside the system where it has a call for that, else
// through a buffer.
//
// Owner: the body that goes to a file. Thread: the network thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "platform/posix/descriptor.h"
#include "platform/posix/posix_temporary_file.h"

namespace zunto {

class BodyPump {
 public:
  enum class Method {
    splice,  ///< by splice(2), which takes a third less time of a processor; else, where that is refused, as
             ///< below
    copy     ///< by reading and writing
  };

  explicit BodyPump(Method method);

  /// Moves at most `most` bytes (at least 1) of what has arrived on `socket`, which does not block, to the
  /// end of `file`. Answers their number, 0 at the end of the connection, none when nothing is there. Throws
  /// SystemError when the connection is lost or the file takes no more.
  std::optional<std::size_t> move(int socket, PosixTemporaryFile::Writer& file, std::uint64_t most);

 private:
  [[nodiscard]] std::optional<std::size_t> copy(int source, PosixTemporaryFile::Writer& file,
                                                std::uint64_t most);
  void empty(std::size_t count, PosixTemporaryFile::Writer& file);

  Descriptor exit_;  // of a pipe that splice(2) needs on the way; none when bytes are copied
  Descriptor entry_;
  std::vector<char> buffer_;  // empty until a byte is copied
};

}  // namespace zunto
