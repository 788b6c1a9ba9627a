#include "scheduler_link/routing.h"

#include <gateway/log_macros.h>
#include <gateway/wall_clock.h>

#include <chrono>
#include <map>
#include <mutex>
#include <stdexcept>
#include <utility>

#include "dbus_process_call/dbus_process_call.h"
#include "lib/json_helper.h"
#include "scheduler_link/identity.h"
#include "status_file/status_file.h"
#include "wire/bus_names.h"
#include "wire/codes.h"
#include "wire/topics.h"

namespace jobm {
namespace {

// Filled by every thread that asks the scheduler something, emptied by the listening thread. The
// lock is not held while a handler runs: handlers publish and file requests of their own.
std::mutex idReqMapLock;
std::map<std::int64_t, ReplyHandler> idReqMap;

std::int64_t microseconds() {
  const auto now = gateway::wallClock().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(now).count();
}

bool isFiled(std::int64_t id) {
  const std::lock_guard guard(idReqMapLock);
  return idReqMap.contains(id);
}

ReplyHandler handlerOf(std::int64_t id) {
  const std::lock_guard guard(idReqMapLock);
  return idReqMap.at(id);
}

void forget(std::int64_t id) {
  const std::lock_guard guard(idReqMapLock);
  idReqMap.erase(id);
}

void logUnknown(std::int64_t id) {
  LOGW("dispatchMasterResponse id %lld no exist\n", static_cast<long long>(id));
  const std::lock_guard guard(idReqMapLock);
  for (const auto& entry : idReqMap) {
    LOGI("idReqMap id = %lld \n", static_cast<long long>(entry.first));
  }
}

void runHandler(std::int64_t id, const Json::Value& root) {
  try {
    const ReplyHandler handler = handlerOf(id);
    if (handler) {
      handler(root);
    } else {
      LOGE("dispatchMasterResponse func is null");
    }
    forget(id);
  } catch (const std::out_of_range& e) {
    LOGE("dispatchMasterResponse out_of_range err = %s\n", e.what());
  }
}

}  // namespace

std::int64_t fileRequest(ReplyHandler handler) {
  const std::lock_guard guard(idReqMapLock);
  std::int64_t id = microseconds();
  while (idReqMap.contains(id)) ++id;
  idReqMap.emplace(id, std::move(handler));
  return id;
}

std::size_t outstandingRequests() {
  const std::lock_guard guard(idReqMapLock);
  return idReqMap.size();
}

std::string schedulerRequest(std::int64_t id, const Json::Value& attrs) {
  Json::Value request;
  request["attrs"] = attrs;
  request["id"] = static_cast<Json::UInt64>(id);
  request["reply"] = false;
  return json::styled(request);
}

int dispatchMasterResponse(const std::string& topic, const std::string& payload) {
  if (topic.find(topic::kTrigger) != std::string::npos) {
    deliveryInfo(topic::kTrigger, payload);
    return 1;
  }
  Json::Value parsed;
  if (!json::parse(payload, parsed)) {
    LOGE("payload parse Error\n");
    return 0;
  }
  const Json::Value& root = parsed;
  const Json::Value& reply = root["attrs"][0U];
  if (reply["code"].asInt() == kJobList && !reply["data"].empty()) {
    // The id alone decides where a reply goes. The code is read all the same, see "Members that are
    // read for their type" in docs/architecture.md.
  }
  if (!root.isMember("id")) return 0;
  const std::int64_t id = root["id"].asInt64();
  if (!isFiled(id)) {
    logUnknown(id);
    return 1;
  }
  runHandler(id, root);
  return 1;
}

int deliveryInfo(const std::string& topic, const std::string& payload) {
  LOGI("deliveryInfo begin payload = %s \n", payload.c_str());
  if (topic != topic::kTrigger) return 1;
  deliveryInfoToNodeEngineBySignal("actionOnce", payload, bus::kScriptEngineExecutor);
  return 1;
}

bool subscribeInvoke() {
  const std::string topic = gatewayTopic(topic::kTrigger);
  // Without limit and pause, see "Subscribing the trigger topic" in docs/architecture.md.
  while (subscribe(topic, bus::kJobManager.name, 1) != 0) {
  }
  return true;
}

void netChanged(const std::string& status) {
  LOGW("netChanged status= %s\n", status.c_str());
  setStatusWord("broker", status);
  // Nothing else to do: the bridge keeps the subscriptions over a reconnect, and the scheduler
  // keeps the runner id.
}

}  // namespace jobm
