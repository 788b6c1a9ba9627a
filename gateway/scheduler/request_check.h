/// The cloud's half of the contract: what a request of the gateway must look like.
#pragma once

#include <json/value.h>

#include <cstdint>
#include <string>

namespace gateway {

/// What is wrong with the request that came on the topic `suffix` (behind the gateway's prefix), ""
/// when nothing is. `address` is the product key and the device name joined by an underscore,
/// `runId` the id that was granted.
std::string requestFault(const std::string& suffix, const Json::Value& request,
                         const std::string& address, std::int64_t runId);

}  // namespace gateway
