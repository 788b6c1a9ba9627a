/// A result as people read it, and compared with what was expected of it.
#pragma once

#include <json/value.h>

#include <string>
#include <vector>

namespace gateway {

/// Whether `event` is the last word on its order: the deployment's report, or for orders without a
/// deployment (and for packages that could not be fetched) the status.
bool isLastWord(const Json::Value& event);

/// True when `event` (the last word on an order) says that everything succeeded.
bool succeeded(const Json::Value& event);

/// True when a report's row says so of its resource.
bool isSuccess(const Json::Value& row);

/// The event as a table, one line per resource.
std::string tableOf(const Json::Value& event);

/// Compares the event with `expected`, an object from resource ids ("" for a result of none) to
/// the members ("success", "code", "message") that their rows must have. Returns one sentence per
/// difference.
std::vector<std::string> differences(const Json::Value& event, const Json::Value& expected);

}  // namespace gateway
