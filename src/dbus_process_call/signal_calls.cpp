#include <gateway/log_macros.h>

#include <exception>
#include <utility>

#include "dbus_process_call/dbus_process_call.h"
#include "dbus_process_call/proxies.h"
#include "lib/json_helper.h"
#include "wire/bus_names.h"

namespace jobm {
namespace {

// Emits `signalName` from this service's own path and interface with one text argument.
void emitSignal(const std::string& signalName, const std::string& text) {
  quillon::DProxy* proxy = jobManagerProxy;
  if (proxy == nullptr) return;
  const auto signal = proxy->makeSignal(signalName.c_str());
  if (!signal) return;
  signal->writeString(text);
  proxy->sendSignal(signal);
}

void replaceParentGroupIds(Json::Value& body, const std::string& parentGroupIds) {
  try {
    Json::Value parents;
    if (!json::parse(parentGroupIds, parents)) return;
    body["parentGroupIds"] = std::as_const(parents)["parentGroupIds"];
  } catch (const std::exception& e) {
    LOGE("parentsId exception Error = %s\n", e.what());
  }
}

}  // namespace

void feedDog(const std::string& name, int seconds) {
  quillon::DProxy* proxy = jobManagerProxy;
  if (proxy == nullptr) return;
  const auto signal = proxy->makeSignal("feedDog");
  if (!signal) return;
  signal->setPath(bus::kJobManager.path);
  signal->setInterface(bus::kWatchdog.name);
  signal->setDestination(bus::kWatchdog.name);
  signal->writeString(bus::kJobManager.name).writeString(name).writeInt32(seconds);
  proxy->sendSignal(signal);
}

void deliveryInfoToNodeEngineBySignal(const std::string& interface, const std::string& payload,
                                      const std::string& prefix) {
  LOGI("deliveryInfoToNodeEngineBySignal  interface : %s\n", interface.c_str());
  Json::Value body;
  body["payload"] = payload;
  body["interface"] = interface;
  const std::string text = json::styled(body);
  emitSignal(prefix + "_Event_Invoke", text);
  LOGI("send payload =%s\n", text.c_str());
}

void sendSignalToDBus(std::int64_t ackId, int ackCode, std::int64_t jobId,
                      const std::string& executor, const std::string& path, const std::string& type,
                      std::int64_t groupId, const std::string& parentGroupIds,
                      const std::string& sceneId) {
  LOGI("sendSignalToDBus  jobId : %lld\n", static_cast<long long>(jobId));
  Json::Value body;
  body["ackId"] = Json::Int64{ackId};
  body["ackCode"] = ackCode;
  body["jobId"] = Json::Int64{jobId};
  body["type"] = type;
  body["path"] = path;
  body["executor"] = executor;
  body["groupId"] = Json::Int64{groupId};
  body["parentGroupIds"] = parentGroupIds;
  body["sceneId"] = sceneId;
  if (!parentGroupIds.empty()) replaceParentGroupIds(body, parentGroupIds);
  const std::string text = json::styled(body);
  emitSignal(executor + "_Event", text);
  LOGI("send payload =%s\n", text.c_str());
}

void sendGroupConfigToDBus(std::int64_t ackId, int ackCode, std::int64_t jobId,
                           const std::string& executor, const std::string& groupPath) {
  LOGI("sendGroupConfigToDBus groupPath = %s\n", groupPath.c_str());
  Json::Value body;
  body["groupPath"] = groupPath;
  body["ackId"] = Json::Int64{ackId};
  body["ackCode"] = ackCode;
  body["jobId"] = Json::Int64{jobId};
  body["executor"] = executor;
  const std::string text = json::styled(body);
  emitSignal("NodeEngine_Config_Event", text);
  LOGI("sendConfigToDBus end payload : %s\n", text.c_str());
}

void sendSignalToLog(int level, const std::string& tag, const std::string& file,
                     const std::string& func, const std::string& line, const std::string& message) {
  LOGI("sendSignalToLog begin \n level =%d tag= %s file=%s func=%s line=%s\n", level, tag.c_str(),
       file.c_str(), func.c_str(), line.c_str());
  quillon::DProxy proxy(bus::kLog.name, bus::kLog.path, bus::kLog.name);
  const auto signal = proxy.makeSignal("logPrint");
  if (!signal) return;
  signal->writeInt32(level).writeString(tag).writeString(file);
  signal->writeString(func).writeString(line).writeString(message);
  proxy.sendSignal(signal);
}

}  // namespace jobm
