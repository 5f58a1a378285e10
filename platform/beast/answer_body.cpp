#include "platform/beast/answer_body.h"

#include <utility>

#include "platform/system_error.h"

namespace zunto {

void AnswerBody::expect(std::uint64_t count) const {
  if (!writer_ && count > memoryLimit_ - bytes_.size()) {
    throw SystemError("The answer of the local processor is too large.");
  }
}

void AnswerBody::append(std::string_view bytes) {
  if (writer_) return writer_->write(bytes);
  expect(bytes.size());
  bytes_ += bytes;
}

std::optional<std::size_t> AnswerBody::appendFrom(int socket, std::uint64_t most) {
  if (!pump_) pump_.emplace(method_);
  return pump_->move(socket, *writer_, most);
}

std::string AnswerBody::finish() {
  if (writer_) writer_->close();
  return std::move(bytes_);
}

}  // namespace zunto
