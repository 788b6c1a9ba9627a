#include "lib/json_helper.h"

// The library's older reader and writers, because they accept comments and indent by three spaces,
// as neighbours and the cloud have always got their texts; the newer ones indent by tabs. They are
// deprecated, a warning that is silenced here and nowhere else.
#pragma GCC diagnostic ignored "-Wdeprecated-declarations"

#include <json/reader.h>
#include <json/writer.h>

#include <algorithm>
#include <exception>

namespace jobm::json {
namespace {

// True when nothing but blanks and comments is left: the reader itself stops behind the first
// value.
bool isRestEmpty(std::string_view rest) {
  while (true) {
    rest.remove_prefix(std::min(rest.find_first_not_of(" \t\r\n"), rest.size()));
    if (rest.empty()) return true;
    const bool isLine = rest.starts_with("//");
    if (!isLine && !rest.starts_with("/*")) return false;
    const std::size_t end = rest.find(isLine ? "\n" : "*/", 2);
    if (end == std::string_view::npos) return isLine;
    rest.remove_prefix(end + (isLine ? 1 : 2));
  }
}

// May leave a part in `value` where it returns false.
bool isRead(std::string_view text, Json::Value& value) {
  try {
    Json::Reader reader;
    if (!reader.parse(text.data(), text.data() + text.size(), value, false)) return false;
    return isRestEmpty(text.substr(static_cast<std::size_t>(value.getOffsetLimit())));
  } catch (const std::exception&) {
    return false;  // nested too deep: no JSON that this program understands
  }
}

}  // namespace

bool parse(std::string_view text, Json::Value& value) {
  if (isRead(text, value)) return true;
  value = Json::Value();
  return false;
}

std::string styled(const Json::Value& value) { return Json::StyledWriter().write(value); }

std::string compact(const Json::Value& value) { return Json::FastWriter().write(value); }

std::string textOf(const Json::Value& object, const char* key) {
  if (!object.isObject()) return {};
  const Json::Value& member = object[key];
  return member.isString() ? member.asString() : std::string();
}

}  // namespace jobm::json
