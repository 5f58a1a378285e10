// Where the body of an answer goes: into memory, up to a bound, or into a file.
//
// Owner: the exchange. Thread: made on the main thread, then the network thread's.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/beast/body_pump.h"
#include "platform/posix/posix_temporary_file.h"

namespace zunto {

class AnswerBody {
 public:
  /// In memory, at most `memoryLimit` bytes.
  explicit AnswerBody(std::size_t memoryLimit) : memoryLimit_(memoryLimit) {}

  /// In the file of `writer`.
  AnswerBody(std::unique_ptr<PosixTemporaryFile::Writer> writer, BodyPump::Method method)
      : writer_(std::move(writer)), method_(method) {}

  /// Throws SystemError when `count` bytes more are too many.
  void expect(std::uint64_t count) const;

  /// Throws SystemError when it is too large or the file takes no more.
  void append(std::string_view bytes);

  [[nodiscard]] bool isFile() const { return writer_ != nullptr; }

  /// Of a file: appends what has arrived on `socket`; as BodyPump::move().
  std::optional<std::size_t> appendFrom(int socket, std::uint64_t most);

  /// The body in memory; empty when it went to a file, which is closed. Throws SystemError when the system
  /// reports only now that something could not be written.
  [[nodiscard]] std::string finish();

 private:
  std::size_t memoryLimit_ = 0;
  std::string bytes_;
  std::unique_ptr<PosixTemporaryFile::Writer> writer_;
  BodyPump::Method method_ = BodyPump::Method::copy;
  std::optional<BodyPump> pump_;  // made when it is first needed
};

}  // namespace zunto
