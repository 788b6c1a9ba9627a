#include "executor_api/registry.h"

#include <gateway/log_macros.h>

#include <exception>
#include <utility>

#include "dbus_process_call/dbus_process_call.h"
#include "lib/comm_path.h"
#include "lib/json_helper.h"
#include "tables.h"

namespace jobm {
namespace registry {

Tables& tables() {
  // Deliberately never destroyed: threads outlive static destruction.
  static auto& all = *std::make_unique<Tables>().release();
  return all;
}

Address readAddress(const Json::Value& registration) {
  const Json::Value& address = registration["executorAddr"];
  return {address["name"].asString(), address["interface"].asString(), address["path"].asString()};
}

std::vector<std::string> readTexts(const Json::Value& array) {
  std::vector<std::string> texts;
  if (!array.isArray()) return texts;
  for (const Json::Value& element : array) texts.push_back(element.asString());
  return texts;
}

Executor makeExecutor(const Address& address, const std::string& executorName,
                      const Executor* previous) {
  Executor executor;
  executor.name = address.name;
  executor.interface = address.interface;
  executor.path = address.path;
  executor.executorName = executorName;
  const bool sameAddress = previous != nullptr && previous->proxy &&
                           previous->proxy->isFor(address.name, address.path, address.interface);
  executor.proxy = sameAddress
                       ? previous->proxy
                       : std::make_shared<quillon::DProxy>(
                             address.name.c_str(), address.path.c_str(), address.interface.c_str());
  return executor;
}

namespace {

constexpr const char* kExecutorUnreadable = "registerExecutor params parse json error";
constexpr const char* kParserUnreadable = "Invalid payload";

template <typename Map>
const Executor* find(const Map& map, const std::string& name) {
  const auto entry = map.find(name);
  return entry != map.end() ? &entry->second : nullptr;
}

bool hasArray(const Json::Value& registration, const char* key) {
  return registration.isMember(key) && registration[key].isArray();
}

Json::ArrayIndex sizeOf(const Json::Value& array) { return array.isArray() ? array.size() : 0; }

bool hasNoTypes(const Json::Value& registration) {
  return sizeOf(registration["storeType"]) == 0 && sizeOf(registration["watchType"]) == 0;
}

// Everything that can throw comes before the first table is touched.
std::string takeExecutor(const std::string& payload, const Json::Value& registration) {
  static_cast<void>(registration["linkType"].asInt());  // read for its type only
  const std::string executorName = registration["executorName"].asString();
  if (!isPathComponent(executorName)) return "registerExecutor executorName error";
  const int stored = saveExecutor2ConfigManager(executorName, payload);
  LOGI("saveExecutor2ConfigManager result = %d", stored);
  LOGI("user executorName = %s", executorName.c_str());
  const Address address = readAddress(registration);
  if (address.name.empty() || address.interface.empty() || address.path.empty() ||
      address.path.front() != '/') {
    return "registerExecutor executorAddr error";
  }
  if (hasNoTypes(registration)) return "registerExecutor *Type param error";
  std::vector<std::string> storeType = readTexts(registration["storeType"]);
  std::vector<std::string> watchType = readTexts(registration["watchType"]);
  Tables& all = tables();
  for (const std::string& type : watchType) all.executorWatchMap[type].insert(executorName);
  Executor executor = makeExecutor(address, executorName, find(all.executorMap, executorName));
  executor.storeType = std::move(storeType);
  executor.watchType = std::move(watchType);
  all.executorMap.insert_or_assign(executorName, std::move(executor));
  all.liveExecutors.insert(executorName);
  return {};
}

void logParsers(const WatchMap& watchMap) {
  for (const auto& [type, names] : watchMap) {
    LOGI("resourceType: %s", type.c_str());
    for (const std::string& name : names) LOGI("    %s", name.c_str());
  }
}

// A restored registration isn't stored again over a newer one that has come in meanwhile.
void storeParser(const std::string& executorName, const Json::Value& registration, Origin origin) {
  if (origin == Origin::kRestored && tables().liveParsers.contains(executorName)) return;
  const int stored = saveToConfigManager(kParsersKey, executorName, registration);
  LOGI("saving parser %s to %s, result = %d", executorName.c_str(), kParsersKey, stored);
  if (origin == Origin::kLive) tables().liveParsers.insert(executorName);
}

std::string fillParser(const Json::Value& registration, Origin origin) {
  const std::string executorName = registration["executorName"].asString();
  if (!isPathComponent(executorName)) return "registerParser executorName error";
  storeParser(executorName, registration, origin);
  const Address address = readAddress(registration);
  if ((!hasArray(registration, "storeType") && !hasArray(registration, "watchType")) ||
      hasNoTypes(registration)) {
    return "Parser should contain JSON ARRAY MEMBER storeType or watchType";
  }
  std::vector<std::string> storeType = readTexts(registration["storeType"]);
  std::vector<std::string> watchType = readTexts(registration["watchType"]);
  Tables& all = tables();
  for (const std::string& type : watchType) all.parserWatchMap[type].insert(executorName);
  LOGI("Creating Executor with proxy: interface=%s path=%s wellknownName=%s",
       address.interface.c_str(), address.path.c_str(), address.name.c_str());
  Executor parser = makeExecutor(address, executorName, find(all.parserMap, executorName));
  parser.storeType = std::move(storeType);
  parser.watchType = std::move(watchType);
  all.parserMap.insert_or_assign(executorName, std::move(parser));
  logParsers(all.parserWatchMap);
  return {};
}

}  // namespace

std::string takeParser(const std::string& payload, Origin origin) {
  LOGI("Entering registerParser, payload = %s", payload.c_str());
  try {
    Json::Value registration;
    if (!json::parse(payload, registration)) {
      LOGI("Invalid payload: %s", payload.c_str());
      return kParserUnreadable;
    }
    return fillParser(registration, origin);
  } catch (const std::exception& e) {
    LOGE("registerExecutor json error ! e = %s", e.what());
    return kParserUnreadable;
  }
}

}  // namespace registry

using registry::tables;

std::string registerExecutor(const std::string& payload) {
  LOGI("registerExecutor begin payload = %s\n", payload.c_str());
  const std::lock_guard guard(tables().lock);
  try {
    Json::Value registration;
    if (!json::parse(payload, registration)) {
      LOGI("registerExecutor parse failed payload = %s\n", payload.c_str());
      return registry::kExecutorUnreadable;
    }
    return registry::takeExecutor(payload, registration);
  } catch (const std::exception& e) {
    LOGE("registerExecutor json error ! e = %s", e.what());
    return registry::kExecutorUnreadable;
  }
}

std::string registerParser(const std::string& payload) {
  const std::lock_guard guard(tables().lock);
  return registry::takeParser(payload, registry::Origin::kLive);
}

int saveExecutor2ConfigManager(const std::string& executorName, const std::string& payload) {
  Json::Value registration;
  if (!json::parse(payload, registration)) {
    LOGE("configManager jobm_executors parse Error, Error content = %s\n", payload.c_str());
    return 1;
  }
  return saveToConfigManager(registry::kExecutorsKey, executorName, registration);
}

int saveToConfigManager(const std::string& key, const std::string& name, const Json::Value& value) {
  Json::Value all;
  if (!json::parse(getConfig(key), all) || !all.isObject()) all = Json::Value(Json::objectValue);
  all[name] = value;
  const std::string text = json::compact(all);
  // One level deeper than the value came: what the next start couldn't read would cost everybody's
  // registration.
  if (Json::Value readBack; !json::parse(text, readBack)) return 1;
  return setConfig(key, text);
}

std::optional<Executor> getExecutor(const std::string& name) {
  const std::lock_guard guard(tables().lock);
  const Executor* found = registry::find(tables().executorMap, name);
  return found != nullptr ? std::optional(*found) : std::nullopt;
}

std::optional<Executor> getParser(const std::string& name) {
  const std::lock_guard guard(tables().lock);
  const Executor* found = registry::find(tables().parserMap, name);
  return found != nullptr ? std::optional(*found) : std::nullopt;
}

namespace {

std::set<std::string> namesOf(const registry::WatchMap& watchMap, const std::string& watchType) {
  const std::lock_guard guard(tables().lock);
  const auto entry = watchMap.find(watchType);
  return entry != watchMap.end() ? entry->second : std::set<std::string>{};
}

}  // namespace

std::set<std::string> getExecutorsByWatchType(const std::string& watchType) {
  return namesOf(tables().executorWatchMap, watchType);
}

std::set<std::string> getParsersByWatchType(const std::string& watchType) {
  return namesOf(tables().parserWatchMap, watchType);
}

std::vector<Executor> allExecutors() {
  const std::lock_guard guard(tables().lock);
  std::vector<Executor> all;
  for (const auto& entry : tables().executorMap) all.push_back(entry.second);
  return all;
}

}  // namespace jobm
