// An answer is the same however its bytes are cut, and no bytes do harm.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include "platform/beast/answer_parser.h"
#include "platform/system_error.h"

namespace zunto::testing {
namespace {

/// What comes of `bytes` in pieces of at most `pieceSize`, then the end of the connection, as one text.
std::string parsed(std::string_view bytes, std::size_t pieceSize) {
  std::string body;
  AnswerParser parser("GET", [&](std::string_view piece) { body += piece; });
  try {
    std::string unread;
    for (std::size_t sent = 0; sent < bytes.size() && !parser.isWhole(); sent += pieceSize) {
      unread += bytes.substr(sent, pieceSize);
      unread.erase(0, parser.take(unread));
    }
    if (!parser.isWhole()) parser.takeEnd();
  } catch (const SystemError& failure) {
    return failure.message();
  }
  std::string text = parser.head().status ? std::to_string(*parser.head().status) : "none";
  for (const auto& [name, value] : parser.head().headers) text += "|" + name + "=" + value;
  return text + "|" + body;
}

std::string failureOfHeadOf(std::size_t size, std::size_t pieceSize) {
  const std::string beginning = "HTTP/1.1 204 None\r\n";
  const std::string line = "X-A: " + std::string(57, 'a') + "\r\n";
  std::string head = beginning;
  while (head.size() + 2 * line.size() < size) head += line;
  head += "X-B: " + std::string(size - head.size() - 9, 'b') + "\r\n\r\n";
  EXPECT_EQ(head.size(), size);
  const std::string text = parsed(head, pieceSize);
  return text.starts_with("204") ? "no failure" : text;
}

const std::vector<std::string>& answers() {
  static const std::vector<std::string> all{
      "HTTP/1.1 200 OK\r\nContent-Length: 5\r\nX-A: one\r\n\r\nabcde",
      "HTTP/1.1 200 OK\r\nX-A:\r\nx-a:  two \r\n\r\nall until the end",
      "HTTP/1.0 404 \r\n\r\n",
      "HTTP/1.1 204 No Content\r\nContent-Length: 7\r\n\r\nnothing",
      "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3;name=value\r\nabc\r\n0010\r\n"
      "0123456789abcdef\r\n0\r\nX-Trailer: t\r\nContent-Length: 9\r\n\r\n",
      "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Hints\r\nX-Early: e\r\n\r\nHTTP/1.1 201 Created\r\nX-A: "
      "a\r\n"
      "Content-Length: 2\r\n\r\n{}",
      "HTTP/1.1 101 Switching Protocols\r\nX-A: a\r\n\r\nother",
      "HTTP/1.1 200 OK\r\nContent-Length: 5\r\n\r\nabc",
      "HTTP/1.1 200 OK\r\nX-A: a",
      "SSH-2.0-Stranger\r\n",
      "HTTP/1.x 200 OK",
      "HTTP/1.1 K\r\nX-A: a\r\n",
      "HTTP/1.1 20\nX-A: a\r\n",
      "HTTP/1.1 100 Continue\r\n\r\n"};
  return all;
}

TEST(AnswerParser, ReadsAnAnswerTheSameHoweverItsBytesAreCut) {
  for (const std::string& answer : answers()) {
    const std::string whole = parsed(answer, answer.size());
    for (const std::size_t pieceSize : {1U, 2U, 3U, 7U, 16U, 40U}) {
      EXPECT_EQ(parsed(answer, pieceSize), whole) << answer;
    }
  }
}

TEST(AnswerParser, IgnoresTrailersAndWhatFollowsTheAnswer) {
  EXPECT_EQ(parsed(answers()[3], 1000), "204|Content-Length=7|");
  EXPECT_EQ(
      parsed("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n1\r\na\r\n0\r\nX-T: t\r\n\r\nmore", 1000),
      "200|Transfer-Encoding=chunked|a");
}

// Line by line as well, where the bytes that are waiting never exceed the bound.
TEST(AnswerParser, BoundsAHeadToTheByteHoweverItsBytesAreCut) {
  constexpr const char* tooLarge = "The head of the local processor's answer is too large.";
  for (const std::size_t pieceSize : {19U, 64U, 65536U, 1000000U}) {
    EXPECT_EQ(failureOfHeadOf(AnswerParser::largestHead, pieceSize), "no failure") << pieceSize;
    EXPECT_EQ(failureOfHeadOf(AnswerParser::largestHead + 1, pieceSize), tooLarge) << pieceSize;
  }
}

TEST(AnswerParser, BoundsTheNumberOfInterimAnswers) {
  std::string interim;
  for (int answer = 0; answer < AnswerParser::mostInterimAnswers; ++answer)
    interim += "HTTP/1.1 102 \r\n\r\n";
  EXPECT_EQ(parsed(interim + "HTTP/1.1 204 \r\n\r\n", 1000), "204|");
  EXPECT_EQ(parsed(interim + "HTTP/1.1 102 \r\n\r\n", 1000),
            "The local processor sent interim answers without an end.");
}

TEST(AnswerParser, BoundsTheHeadsOfInterimAnswersWithTheFinalOne) {
  const std::string large = "\r\nX-A: " + std::string(AnswerParser::largestHead / 2, 'a') + "\r\n\r\n";
  EXPECT_EQ(parsed("HTTP/1.1 103 Hints" + large + "HTTP/1.1 200 OK" + large, 4096),
            "The head of the local processor's answer is too large.");
}

TEST(AnswerParser, TakesAnyBytesWithoutHarm) {
  std::mt19937 random(7);
  const auto below = [&random](std::size_t bound) {
    return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random);
  };
  for (int round = 0; round < 20'000; ++round) {
    std::string bytes = answers()[below(answers().size())];
    for (std::size_t change = below(6) + 1; change > 0; --change) {
      const std::size_t place = below(bytes.size());
      const std::string_view inserted = std::string_view("\0\r\n: ;0fFx\xff", 11).substr(below(11), 1);
      bytes.replace(place, below(2), inserted);
    }
    EXPECT_FALSE(parsed(bytes, below(40) + 1).empty());
  }
}

}  // namespace
}  // namespace zunto::testing
