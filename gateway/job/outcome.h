/// A result as people read it, and compared with what was expected of it.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace gateway {

/// True when `event` (the last word on an order) says that everything succeeded.
bool succeeded(const Json::Value& event);

/// The event as a table, one line per resource.
std::string tableOf(const Json::Value& event);

/// Compares the event with `expected`, an object from resource ids ("" for a result of none) to
/// the members ("success", "code", "message") that their rows must have. Returns one sentence per
/// difference.
std::vector<std::string> differences(const Json::Value& event, const Json::Value& expected);

}  // namespace gateway
