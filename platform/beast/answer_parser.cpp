#include "platform/beast/answer_parser.h"

#include <algorithm>
#include <boost/asio/buffer.hpp>
#include <boost/beast/http/basic_parser.hpp>
#include <boost/beast/http/error.hpp>
#include <boost/version.hpp>
#include <limits>
#include <string>
#include <utility>

#include "platform/system_error.h"

namespace zunto {

namespace {

namespace http = boost::beast::http;
using boost::system::error_code;

constexpr const char* malformed = "The answer of the local processor was not valid HTTP.";
constexpr const char* headTooLarge = "The head of the local processor's answer is too large.";
constexpr const char* interimOnly = "The local processor sent interim answers without an end.";

/// Whether HTTP can begin like this: what is there of the first line's beginning is right.
bool beginsLikeHttp(std::string_view bytes) {
  constexpr std::string_view beginning = "HTTP/1.";
  return bytes.substr(0, beginning.size()) == beginning.substr(0, bytes.size());
}

}  // namespace

/// One answer, interim or final. Not Beast's own containers: they sort headers by name and copy the body once
/// more.
class AnswerParser::Message final : public http::basic_parser<false> {
 public:
  Message(bool isBodyless, TakeBody takeBody) : takeBody_(std::move(takeBody)) {
    // Beast counts what it is given at once, which a head that comes line by line never exceeds.
    header_limit(std::numeric_limits<std::uint32_t>::max());
    body_limit(boost::none);
    skip(isBodyless);
  }

  [[nodiscard]] const HttpResponseHead& head() const { return head_; }
  [[nodiscard]] bool isInterim() const { return head_.status && *head_.status < 200 && *head_.status != 101; }

 private:
  using View = boost::beast::string_view;

  static std::string_view standard(View text) { return {text.data(), text.size()}; }

  void on_request_impl(http::verb, View, View, int, error_code&) override {}
  void on_response_impl(int code, View, int, error_code& failure) override {
    if (code < 100) {
      failure = http::error::bad_status;
    } else {
      head_.status = code;
    }
  }
  void on_field_impl(http::field, View name, View value, error_code&) override {
    // Trailers come here, too.
    if (!is_header_done()) head_.headers.emplace_back(standard(name), standard(value));
  }
#if BOOST_VERSION >= 108900
  void on_trailer_field_impl(http::field, View, View, error_code&) override {}
#endif
  void on_header_impl(error_code&) override {}
  void on_body_init_impl(const boost::optional<std::uint64_t>&, error_code&) override {}
  std::size_t on_body_impl(View bytes, error_code&) override {
    takeBody_(standard(bytes));
    return bytes.size();
  }
  void on_chunk_header_impl(std::uint64_t, View, error_code&) override {}
  std::size_t on_chunk_body_impl(std::uint64_t, View bytes, error_code&) override {
    takeBody_(standard(bytes));
    return bytes.size();
  }
  void on_finish_impl(error_code&) override {}

  HttpResponseHead head_;
  TakeBody takeBody_;
};

AnswerParser::AnswerParser(std::string_view method, TakeBody takeBody)
    : isBodyless_(method == "HEAD"), takeBody_(std::move(takeBody)) {
  beginMessage();
}

AnswerParser::~AnswerParser() = default;

void AnswerParser::beginMessage() {
  hasBegun_ = false;
  message_ = std::make_unique<Message>(isBodyless_, [this](std::string_view bytes) {
    plainBodySize_ += bytes.size();
    takeBody_(bytes);
  });
}

std::size_t AnswerParser::take(std::string_view bytes) {
  std::size_t taken = 0;
  while (taken < bytes.size() && !isWhole()) {
    const std::size_t count = takeStep(bytes.substr(taken));
    if (count == 0) break;
    taken += count;
  }
  if (!isWhole()) requireBounds(bytes.size() - taken);
  return taken;
}

/// Takes a head, a chunk's first line or a piece of body; 0 when `bytes` do not suffice for one.
std::size_t AnswerParser::takeStep(std::string_view bytes) {
  if (!message_->head().status && !beginsLikeHttp(bytes)) {
    isHttp_ = false;
    return bytes.size();
  }
  hasBegun_ = true;
  // Beast judges what is there of a first line, but only once: it gets whole ones.
  if (!message_->head().status && bytes.find("\r\n") == std::string_view::npos) return 0;
  const bool isHead = !message_->is_header_done();
  error_code failure;
  const std::size_t count = message_->put(boost::asio::buffer(bytes), failure);
  if (isHead) headSize_ += count;
  if (headSize_ > largestHead) throw SystemError(headTooLarge);
  if (!message_->head().status) {
    isHttp_ = false;
    return bytes.size();
  }
  if (failure && failure != http::error::need_more) throw SystemError(malformed);
  if (message_->is_done() && message_->isInterim()) {
    if (++interimAnswers_ > mostInterimAnswers) throw SystemError(interimOnly);
    beginMessage();
  }
  return count;
}

void AnswerParser::requireBounds(std::size_t left) const {
  const bool isHead = !message_->is_header_done();
  if (isHead && headSize_ + left > largestHead) throw SystemError(headTooLarge);
  // A chunk's first line, or its trailers, without an end.
  if (left > largestHead) throw SystemError(malformed);
}

void AnswerParser::pass(std::uint64_t count) { plainBodySize_ += count; }

void AnswerParser::takeEnd() {
  if (!hasBegun_) throw SystemError("The local processor closed the connection without an answer.");
  error_code failure;
  // Beast takes an end before the first line for a whole answer.
  if (message_->head().status) message_->put_eof(failure);
  if (failure || !message_->head().status)
    throw SystemError("The answer of the local processor was cut short.");
}

bool AnswerParser::isWhole() const {
  if (!isHttp_ || message_->is_done()) return true;
  const std::optional<PlainBody> plain = plainBody();
  return plain && plain->left == std::uint64_t{0};
}

const HttpResponseHead& AnswerParser::head() const { return message_->head(); }

std::optional<AnswerParser::PlainBody> AnswerParser::plainBody() const {
  if (!message_->is_header_done() || message_->is_done() || message_->chunked()) return std::nullopt;
  const boost::optional<std::uint64_t> length = message_->content_length();
  return PlainBody{length ? std::optional(*length - plainBodySize_) : std::nullopt};
}

}  // namespace zunto
