#include "protocol/request_body.h"

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

#include "protocol/text.h"

namespace zunto {

namespace json = boost::json;

namespace {

json::value jsonValue(const std::string& key, const RequestValue& value) {
  if (const bool* flag = std::get_if<bool>(&value)) return json::value(*flag);
  const auto& text = std::get<std::string>(value);
  if (!isUtf8(text))
    throw EncodingError("The request could not be written: “" + key + "” is not valid text.");
  return json::value(json::string(text));
}

}  // namespace

std::string serialize(const RequestBody& body) {
  json::object object;
  for (const auto& [key, value] : body) object.insert_or_assign(key, jsonValue(key, value));
  return json::serialize(object);
}

}  // namespace zunto
