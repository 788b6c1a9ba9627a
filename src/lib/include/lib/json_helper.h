/// The one JSON reader and writer. Every function may be called from any thread.
#pragma once

#include <json/value.h>

#include <string>
#include <string_view>

namespace jobm::json {

/// Parses `text` (comments allowed) into `value`. Returns false for everything that is not JSON,
/// also for documents nested deeper than the reader takes; `value` is null then, so that nobody can
/// take the part that was read for the whole.
bool parse(std::string_view text, Json::Value& value);

/// `value` as multi-line text, three spaces of indentation, members in key order.
std::string styled(const Json::Value& value);

/// `value` as one line of text.
std::string compact(const Json::Value& value);

/// The member `key` of `object` when `object` is an object and the member a string, else "". For
/// log lines and comparisons; a reader that must notice a wrong type uses asString, which throws.
std::string textOf(const Json::Value& object, const char* key);

}  // namespace jobm::json
