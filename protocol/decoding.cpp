#include "protocol/decoding.h"

#include <boost/json/value.hpp>
#include <cmath>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "protocol/json_text.h"

namespace zunto {

namespace json = boost::json;

namespace {

/// Where a value stands, as a chain that leads up to the answer. Lists are long: only a failure puts it into
/// words.
struct Place {
  std::string_view key;
  const Place* parent = nullptr;
  std::optional<std::size_t> index{};  ///< of an element, which has no key

  [[nodiscard]] std::string inWords() const {
    const std::string before = parent != nullptr ? parent->inWords() : std::string();
    if (index) return before + "[" + std::to_string(*index) + "]";
    return before + (before.empty() ? "" : ".") + std::string(key);
  }
};

[[noreturn]] void failAt(const Place& place, const char* fault) {
  throw DecodingError("The local processor's answer could not be read: " + place.inWords() + " " + fault +
                      ".");
}

// One overload per type; `place` names the value in the failure's message.

void decode(const json::value& value, const Place& place, std::string& out) {
  if (!value.is_string()) failAt(place, "is not a string");
  out.assign(value.get_string().data(), value.get_string().size());
}

void decode(const json::value& value, const Place& place, bool& out) {
  if (!value.is_bool()) failAt(place, "is not true or false");
  out = value.get_bool();
}

void decode(const json::value& value, const Place& place, double& out) {
  const std::optional<double> number = numberIn(value);
  if (!number) failAt(place, "is not a number");
  if (!std::isfinite(*number)) failAt(place, "is out of range");
  out = *number;
}

/// The keys of one JSON object, which must outlive this, as its place must.
class Keys {
 public:
  Keys(const json::value& value, const Place& place) : place_(place), object_(value.if_object()) {
    if (object_ == nullptr) failAt(place_, "is not an object");
  }

  template <class T>
  void required(std::string_view key, T& out) const;
  template <class T>
  void optional(std::string_view key, std::optional<T>& out) const;

 private:
  const Place& place_;
  const json::object* object_;
};

void decode(const json::value& value, const Place& place, MediaFormat& out) {
  Keys(value, place).required("quality", out.quality);
}

void decode(const json::value& value, const Place& place, SubtitleTrack& out) {
  const Keys keys(value, place);
  keys.required("id", out.id);
  keys.optional("language", out.language);
  keys.optional("label", out.label);
  keys.optional("automatic", out.automatic);
  keys.optional("original", out.original);
}

void decode(const json::value& value, const Place& place, JobResult& out) {
  const Keys keys(value, place);
  keys.required("kind", out.kind);
  keys.optional("downloadUrl", out.downloadUrl);
  keys.optional("filename", out.filename);
}

void decode(const json::value& value, const Place& place, JobError& out) {
  Keys(value, place).required("message", out.message);
}

void decode(const json::value& value, const Place& place, HelperErrorBody::Detail& out) {
  Keys(value, place).required("message", out.message);
}

template <class T>
void decode(const json::value& value, const Place& place, std::vector<T>& out) {
  if (!value.is_array()) failAt(place, "is not an array");
  const json::array& array = value.get_array();
  out.resize(array.size());
  for (std::size_t i = 0; i < array.size(); ++i) {
    decode(array[i], Place{.key = {}, .parent = &place, .index = i}, out[i]);
  }
}

template <class T>
void Keys::required(std::string_view key, T& out) const {
  const Place place{.key = key, .parent = &place_};
  const json::value* value = object_->if_contains(key);
  if (value == nullptr || value->is_null()) failAt(place, "is missing");
  decode(*value, place, out);
}

template <class T>
void Keys::optional(std::string_view key, std::optional<T>& out) const {
  const json::value* value = object_->if_contains(key);
  if (value == nullptr || value->is_null()) return;
  decode(*value, Place{.key = key, .parent = &place_}, out.emplace());
}

MediaJob decodeJob(const json::value& value) {
  const Place place{.key = "job"};
  const Keys keys(value, place);
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
  return decodeJob(parseJson(json));
}

template <>
HelperErrorBody decodeRecord<HelperErrorBody>(std::string_view json) {
  HelperErrorBody body;
  const boost::json::value value = parseJson(json);
  Keys(value, Place{.key = "answer"}).required("error", body.error);
  return body;
}

template <>
std::optional<MediaJob> decodeRecord<std::optional<MediaJob>>(std::string_view json) {
  const boost::json::value value = parseJson(json);
  if (value.is_null()) return std::nullopt;
  return decodeJob(value);
}

bool isHealthyAnswer(std::string_view json) {
  try {
    const boost::json::value answer = parseJson(json);
    const boost::json::object* object = answer.if_object();
    const json::value* status = object != nullptr ? object->if_contains("status") : nullptr;
    return status != nullptr && status->is_string() && status->get_string() == "ok";
  } catch (const DecodingError&) {
    return false;
  }
}

}  // namespace zunto
