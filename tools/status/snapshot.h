/// The state of a gateway's job dispatcher, from the bus, the configuration store and the file that
/// the service keeps.
#pragma once

#include <json/value.h>

#include <string>

namespace gateway {

/// Everything, in the form of docs/gateway-status.md. `statusFile` is the service's.
Json::Value takeSnapshot(const std::string& statusFile);

/// What is not well in a snapshot of a bus that answers, one sentence each.
Json::Value problemsOf(const Json::Value& snapshot);

/// A snapshot for people.
std::string textOf(const Json::Value& snapshot);

}  // namespace gateway
