#include "json_helper.h"

// The library's older reader and writers, deliberately: comments are allowed, and the styled text
// has the three spaces of indentation that its readers know. Deprecated, so silenced, here and
// nowhere else.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

#include <json/reader.h>
#include <json/writer.h>

#include <exception>

namespace jobm::json {

bool parse(std::string_view text, Json::Value& value) {
  try {
    Json::Reader reader;
    return reader.parse(text.data(), text.data() + text.size(), value, false);
  } catch (const std::exception&) {
    return false;  // nested too deep: no JSON that this program understands
  }
}

std::string styled(const Json::Value& value) { return Json::StyledWriter().write(value); }

std::string compact(const Json::Value& value) { return Json::FastWriter().write(value); }

std::string textOf(const Json::Value& object, const char* key) {
  if (!object.isObject()) return {};
  const Json::Value& member = object[key];
  return member.isString() ? member.asString() : std::string();
}

}  // namespace jobm::json
