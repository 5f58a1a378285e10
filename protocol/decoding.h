// Strict decoding of the processor's JSON answers.
//
// A required key that is absent, null or of another type, and an optional one that is present with another
// type, fail the whole answer; keys that no record lists are ignored; nothing is coerced. Any thread.
#pragma once

#include <optional>
#include <string_view>

#include "async/error.h"
#include "protocol/records.h"

namespace zunto {

/// An answer that is not what it should be; the message says where.
class DecodingError : public Error {
 public:
  using Error::Error;
};

/// Decodes `json`, UTF-8 and the whole of it, as a T. Throws DecodingError; never crashes on what it is
/// given: nesting deeper than 64 levels, text that is not UTF-8 and numbers beyond a double are failures like
/// any other. T is MediaJob, HelperErrorBody or std::optional<MediaJob> (none for the JSON null).
template <class T>
[[nodiscard]] T decodeRecord(std::string_view json);

template <>
MediaJob decodeRecord<MediaJob>(std::string_view json);
template <>
HelperErrorBody decodeRecord<HelperErrorBody>(std::string_view json);
template <>
std::optional<MediaJob> decodeRecord<std::optional<MediaJob>>(std::string_view json);

/// Whether `json`, the body of a health answer, is an object whose "status" is the string "ok", letter for
/// letter. Everything else, malformed text included, is false.
[[nodiscard]] bool isHealthyAnswer(std::string_view json);

}  // namespace zunto
