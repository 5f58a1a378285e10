// The bytes of an HTTP answer, taken apart: in whichever pieces they come, and whether the body passes
// through the parser or by it, the answer is the same.
#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "platform/beast/answer_parser.h"
#include "platform/system_error.h"
#include "property.h"

namespace {

using namespace zunto;

struct Answer {
  std::optional<int> status;
  HttpHeaders headers;
  std::string body;
  std::string failure;

  /// Which of two complaints comes first may depend on the pieces.
  bool operator==(const Answer& other) const {
    if (!failure.empty()) return !other.failure.empty();
    return other.failure.empty() && status == other.status && headers == other.headers && body == other.body;
  }
};

enum class Way { throughTheParser, byTheParser };

/// What comes of `bytes` in pieces of `size`, as an exchange reads them.
Answer read(std::string_view bytes, std::size_t size, std::string_view method, Way way) {
  Answer answer;
  try {
    AnswerParser parser(method, [&answer](std::string_view piece) { answer.body += piece; });
    std::string untaken;
    while (!bytes.empty() && !parser.isWhole()) {
      if (const auto plain = parser.plainBody(); plain && way == Way::byTheParser) {
        const std::uint64_t left = plain->left.value_or(std::numeric_limits<std::uint64_t>::max());
        const std::size_t count =
            static_cast<std::size_t>(std::min<std::uint64_t>(left, std::min(size, bytes.size())));
        answer.body += bytes.substr(0, count);
        parser.pass(count);
        bytes.remove_prefix(count);
        continue;
      }
      const std::string_view piece = bytes.substr(0, size);
      bytes.remove_prefix(piece.size());
      untaken += piece;
      untaken.erase(0, parser.take(untaken));
    }
    if (!parser.isWhole()) parser.takeEnd();
    fuzz::require(parser.isWhole(), "an answer is whole at the end or has failed");
    answer.status = parser.head().status;
    answer.headers = parser.head().headers;
  } catch (const SystemError& failure) {
    answer = {.failure = failure.message()};
  }
  return answer;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::string_view bytes = fuzz::textOf(data + 1, size - 1);
  const std::string_view method = (data[0] & 1U) != 0 ? "HEAD" : "GET";
  const std::size_t piece = 1 + (data[0] >> 1U);
  const Answer whole = read(bytes, std::max<std::size_t>(bytes.size(), 1), method, Way::throughTheParser);
  fuzz::require(whole.status || (whole.headers.empty() && whole.body.empty()),
                "what is not HTTP has no parts");
  fuzz::require(method != "HEAD" || whole.body.empty(), "an answer to HEAD has no body");
  const Answer inPieces = read(bytes, piece, method, Way::throughTheParser);
  fuzz::require(inPieces == whole, "pieces change nothing: " + inPieces.failure + " / " + whole.failure);
  const Answer past = read(bytes, piece, method, Way::byTheParser);
  fuzz::require(past == whole,
                "the way of the body changes nothing: " + past.failure + " / " + whole.failure);
  return 0;
}
