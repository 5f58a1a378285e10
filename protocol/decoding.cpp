#include "protocol/decoding.h"

#include <boost/json/parse.hpp>
#include <cmath>
#include <string>
#include <utility>
#include <vector>

namespace zunto {

namespace json = boost::json;

namespace {

constexpr std::size_t maximumDepth = 64;

json::value parseWhole(std::string_view text) {
  json::parse_options options;
  options.max_depth = maximumDepth;
  json::error_code failure;
  json::value value = json::parse(json::string_view(text.data(), text.size()), failure, {}, options);
  if (failure)
    throw DecodingError("The local processor's answer is not valid JSON: " + failure.message() + ".");
  return value;
}

[[noreturn]] void failAt(const std::string& place, const char* fault) {
  throw DecodingError("The local processor's answer could not be read: " + place + " " + fault + ".");
}

// One overload per type; `place` names the value in the failure's message.

void decode(const json::value& value, const std::string& place, std::string& out) {
  if (!value.is_string()) failAt(place, "is not a string");
  out.assign(value.get_string().data(), value.get_string().size());
}

void decode(const json::value& value, const std::string& place, bool& out) {
  if (!value.is_bool()) failAt(place, "is not true or false");
  out = value.get_bool();
}

void decode(const json::value& value, const std::string& place, double& out) {
  if (!value.is_number()) failAt(place, "is not a number");
  out = value.to_number<double>();
  if (!std::isfinite(out)) failAt(place, "is out of range");
}

/// The keys of one JSON object.
class Keys {
 public:
  Keys(const json::value& value, std::string place) : place_(std::move(place)), object_(value.if_object()) {
    if (object_ == nullptr) failAt(place_, "is not an object");
  }

  template <class T>
  void required(json::string_view key, T& out) const;
  template <class T>
  void optional(json::string_view key, std::optional<T>& out) const;

 private:
  [[nodiscard]] std::string placeOf(json::string_view key) const {
    return place_ + "." + std::string(key.data(), key.size());
  }

  std::string place_;
  const json::object* object_;
};

void decode(const json::value& value, const std::string& place, MediaFormat& out) {
  Keys(value, place).required("quality", out.quality);
}

void decode(const json::value& value, const std::string& place, SubtitleTrack& out) {
  const Keys keys(value, place);
  keys.required("id", out.id);
  keys.optional("language", out.language);
  keys.optional("label", out.label);
  keys.optional("automatic", out.automatic);
  keys.optional("original", out.original);
}

void decode(const json::value& value, const std::string& place, JobResult& out) {
  const Keys keys(value, place);
  keys.required("kind", out.kind);
  keys.optional("downloadUrl", out.downloadUrl);
  keys.optional("filename", out.filename);
}

void decode(const json::value& value, const std::string& place, JobError& out) {
  Keys(value, place).required("message", out.message);
}

void decode(const json::value& value, const std::string& place, HelperErrorBody::Detail& out) {
  Keys(value, place).required("message", out.message);
}

template <class T>
void decode(const json::value& value, const std::string& place, std::vector<T>& out) {
  if (!value.is_array()) failAt(place, "is not an array");
  const json::array& array = value.get_array();
  out.resize(array.size());
  for (std::size_t i = 0; i < array.size(); ++i) {
    decode(array[i], place + "[" + std::to_string(i) + "]", out[i]);
  }
}

template <class T>
void Keys::required(json::string_view key, T& out) const {
  const json::value* value = object_->if_contains(key);
  if (value == nullptr || value->is_null()) failAt(placeOf(key), "is missing");
  decode(*value, placeOf(key), out);
}

template <class T>
void Keys::optional(json::string_view key, std::optional<T>& out) const {
  const json::value* value = object_->if_contains(key);
  if (value != nullptr && !value->is_null()) decode(*value, placeOf(key), out.emplace());
}

MediaJob decodeJob(const json::value& value) {
  const Keys keys(value, "job");
  MediaJob job;
  keys.required("jobId", job.jobId);
  keys.required("status", job.status);
  keys.optional("progress", job.progress);
  keys.optional("stage", job.stage);
  keys.optional("title", job.title);
  keys.optional("duration", job.duration);
  keys.optional("formats", job.formats);
  keys.optional("subtitles", job.subtitles);
  keys.optional("originalLanguage", job.originalLanguage);
  keys.optional("recommendedSubtitleId", job.recommendedSubtitleId);
  keys.optional("result", job.result);
  keys.optional("error", job.error);
  return job;
}

}  // namespace

template <>
MediaJob decodeRecord<MediaJob>(std::string_view json) {
  return decodeJob(parseWhole(json));
}

template <>
HelperErrorBody decodeRecord<HelperErrorBody>(std::string_view json) {
  HelperErrorBody body;
  Keys(parseWhole(json), "answer").required("error", body.error);
  return body;
}

template <>
std::optional<MediaJob> decodeRecord<std::optional<MediaJob>>(std::string_view json) {
  const boost::json::value value = parseWhole(json);
  if (value.is_null()) return std::nullopt;
  return decodeJob(value);
}

bool isHealthyAnswer(std::string_view json) {
  try {
    const boost::json::value answer = parseWhole(json);
    const boost::json::object* object = answer.if_object();
    const json::value* status = object != nullptr ? object->if_contains("status") : nullptr;
    return status != nullptr && status->is_string() && status->get_string() == "ok";
  } catch (const DecodingError&) {
    return false;
  }
}

}  // namespace zunto
