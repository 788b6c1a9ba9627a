/// Routing of what the MQTT bridge delivers: triggers go to the rule engine, everything else is a
/// scheduler's reply and goes, by its id, to the handler that was filed with the request.
#pragma once

#include <json/value.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

namespace jobm {

/// Takes the whole reply; the result is not used by the router. Runs on the listening thread.
using ReplyHandler = std::function<bool(Json::Value)>;

/// Files `handler` under a new request id and returns the id: the wall clock in microseconds, or
/// the next free number when that one is taken. Do this before publishing, so that a fast reply
/// finds it. Any thread.
std::int64_t fileRequest(ReplyHandler handler);

/// How many requests have no reply yet. They never expire: the ids are unique, and a late reply
/// still counts. Only tests call this.
std::size_t outstandingRequests();

/// The text of the scheduler request `attrs` with `id`. Any thread.
std::string schedulerRequest(std::int64_t id, const Json::Value& attrs);

/// Handles one delivered message. Returns 1 when it was consumed (also when its id was unknown), 0
/// when it was not JSON or had no id. Throws the JSON library's exception when "attrs" or its code
/// has a wrong type: the entry then stays. Listening thread.
int dispatchMasterResponse(const std::string& topic, const std::string& payload);

/// Passes a trigger on to the rule engine as it is; other topics are ignored. Returns 1. Any
/// thread.
int deliveryInfo(const std::string& topic, const std::string& payload);

/// Subscribes the trigger channel; retries without pause until the bridge accepts, however long
/// that takes. Returns true. Main thread.
bool subscribeInvoke();

/// Notes that the cloud connection changed to `status`. Any thread.
void netChanged(const std::string& status);

}  // namespace jobm
