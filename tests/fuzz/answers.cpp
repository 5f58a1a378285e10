// The processor's JSON answers: a job, the envelope of an error, the answer to a cancellation, the health
// answer. Each is a record or a DecodingError, and says the same as Boost's own reading of the text.
#include <boost/json/error.hpp>
#include <boost/json/parse.hpp>
#include <cmath>
#include <optional>
#include <string>
#include <vector>

#include "property.h"
#include "protocol/decoding.h"
#include "protocol/json_text.h"
#include "protocol/text.h"

namespace {

using namespace zunto;
using zunto::fuzz::require;
namespace json = boost::json;

template <class T>
std::optional<T> decoded(std::string_view text) {
  try {
    return decodeRecord<T>(text);
  } catch (const DecodingError& failure) {
    require(isUtf8(failure.message()), "a failure is told in UTF-8");
    return std::nullopt;
  }
}

std::optional<json::value> parsed(std::string_view text) {
  try {
    return parseJson(text);
  } catch (const DecodingError&) {
    return std::nullopt;
  }
}

void requireText(const std::optional<std::string>& text) {
  require(!text || isUtf8(*text), "a text of a record is UTF-8");
}

void requireFinite(std::optional<double> number) {
  require(!number || std::isfinite(*number), "a number of a record is finite");
}

void check(const MediaJob& job) {
  for (const auto& text : {std::optional(job.jobId), std::optional(job.status), job.stage, job.title,
                           job.originalLanguage, job.recommendedSubtitleId}) {
    requireText(text);
  }
  requireFinite(job.progress);
  requireFinite(job.duration);
  for (const MediaFormat& format : job.formats.value_or(std::vector<MediaFormat>()))
    requireText(format.quality);
  for (const SubtitleTrack& track : job.subtitles.value_or(std::vector<SubtitleTrack>())) {
    for (const auto& text : {std::optional(track.id), track.language, track.label}) requireText(text);
  }
  if (job.result) requireText(job.result->filename);
  if (job.error) requireText(job.error->message);
}

/// Boost's reading of a number may be some last places off.
bool isNear(double ours, double boosts) {
  if (!std::isnormal(ours) || !std::isfinite(boosts)) return true;
  return std::abs(ours - boosts) <= std::abs(ours) * 1e-14;
}

void requireSame(const json::value& ours, const json::value& boosts) {
  if (boosts.is_number()) {
    const std::optional<double> number = numberIn(ours);
    require(number && isNear(*number, boosts.to_number<double>()), "a number is what Boost reads");
    return;
  }
  require(ours.kind() == boosts.kind(), "a value has the type that Boost reads");
  if (boosts.is_array()) {
    require(ours.get_array().size() == boosts.get_array().size(), "a list is as long as Boost's");
    for (std::size_t i = 0; i < boosts.get_array().size(); ++i)
      requireSame(ours.get_array()[i], boosts.get_array()[i]);
  } else if (boosts.is_object()) {
    require(ours.get_object().size() == boosts.get_object().size(), "an object has as many keys as Boost's");
    for (const auto& [key, value] : boosts.get_object()) {
      const json::value* own = ours.get_object().if_contains(key);
      require(own != nullptr, "an object has the keys that Boost reads");
      requireSame(*own, value);
    }
  } else {
    require(ours == boosts, "a value is what Boost reads");
  }
}

const json::value* member(const json::value* value, std::string_view key) {
  const json::object* object = value != nullptr ? value->if_object() : nullptr;
  return object != nullptr ? object->if_contains(key) : nullptr;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text = fuzz::textOf(data, size);
  const std::optional<json::value> ours = parsed(text);
  const std::optional<MediaJob> job = decoded<MediaJob>(text);
  if (job) check(*job);
  const auto envelope = decoded<HelperErrorBody>(text);
  const auto cancellation = decoded<std::optional<MediaJob>>(text);
  if (!ours) {
    require(!job && !envelope && !cancellation, "what is no JSON is no record");
    require(!isHealthyAnswer(text), "what is no JSON is not healthy");
  } else {
    require(cancellation.has_value() == (job || ours->is_null()), "a cancellation's answer is a job or null");
  }

  boost::system::error_code failure;
  json::parse_options options;
  options.max_depth = 64;
  const json::value boosts = json::parse(text, failure, {}, options);
  if (failure == json::error::exponent_overflow) return 0;  // which belongs to a valid number all the same
  require(ours.has_value() == !failure, "what is JSON to Boost is JSON, and nothing else");
  if (failure) return 0;
  requireSame(*ours, boosts);
  const json::value* status = member(&boosts, "status");
  require(isHealthyAnswer(text) == (status != nullptr && *status == "ok"), "healthy is who says so");
  const json::value* message = member(member(&boosts, "error"), "message");
  require(envelope.has_value() == (message != nullptr && message->is_string()),
          "an error is one with a message");
  if (envelope)
    require(envelope->error.message == message->get_string(), "an error's message is the processor's");
  return 0;
}
