// The bytes of an answer taken apart: the head of the final answer, and its body without any framing.
//
// Plain parsing: it knows no connection. Owner: the exchange. One thread at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "platform/http.h"

namespace zunto {

class AnswerParser {
 public:
  /// The most bytes of head, those of interim answers counted with it.
  static constexpr std::size_t largestHead = std::size_t{256} << 10;

  /// The most interim answers before the final one.
  static constexpr int mostInterimAnswers = 100;

  /// Given the body piece by piece. It may throw; the parser is then of no more use.
  using TakeBody = std::function<void(std::string_view)>;

  /// A body that comes as it is, without chunks.
  struct PlainBody {
    std::optional<std::uint64_t> left;  ///< the bytes still to come; none: all until the connection's end
  };

  /// `method` is the request's: an answer to "HEAD" has no body.
  AnswerParser(std::string_view method, TakeBody takeBody);
  AnswerParser(const AnswerParser&) = delete;
  AnswerParser& operator=(const AnswerParser&) = delete;
  ~AnswerParser();

  /// Takes what it can of `bytes`, the next ones of the connection, and answers how many that are; the others
  /// are wanted again, with more behind them. What does not begin as HTTP does is a whole answer without
  /// status, headers and body. Throws SystemError when what has begun as HTTP does not go on so, and when a
  /// bound is passed.
  std::size_t take(std::string_view bytes);

  /// `count` bytes of the plain body went another way.
  void pass(std::uint64_t count);

  /// Nothing more comes. Throws SystemError when the answer is not whole.
  void takeEnd();

  [[nodiscard]] bool isWhole() const;

  /// The head so far; it is complete when the answer is whole or its body has begun.
  [[nodiscard]] const HttpResponseHead& head() const;

  /// The plain body that is under way; none before the head is complete, when the body has chunks and when
  /// there is none.
  [[nodiscard]] std::optional<PlainBody> plainBody() const;

 private:
  class Message;

  void beginMessage();
  std::size_t takeStep(std::string_view bytes);
  void requireBounds(std::size_t left) const;

  bool isBodyless_;
  TakeBody takeBody_;
  std::unique_ptr<Message> message_;  // the interim or final answer that is being parsed
  bool isHttp_ = true;
  bool hasBegun_ = false;  // the message, by its first byte
  int interimAnswers_ = 0;
  std::size_t headSize_ = 0;         // of what is taken
  std::uint64_t plainBodySize_ = 0;  // of what is taken or has gone another way
};

}  // namespace zunto
