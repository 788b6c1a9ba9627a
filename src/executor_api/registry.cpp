#include "executor_api/registry.h"

#include <gateway/log_macros.h>

#include <exception>
#include <utility>

#include "dbus_process_call/dbus_process_call.h"
#include "lib/comm_path.h"
#include "lib/json_helper.h"
#include "stored_registry.h"
#include "tables.h"
#include "wire/store_keys.h"

namespace jobm {
namespace registry {

Tables& tables() {
  // Never destroyed: threads outlive static destruction.
  static auto& all = *std::make_unique<Tables>().release();
  return all;
}

namespace {

constexpr const char* kExecutorUnreadable = "registerExecutor params parse json error";
constexpr const char* kParserUnreadable = "Invalid payload";

bool hasArray(const Json::Value& registration, const char* key) {
  return registration.isMember(key) && registration[key].isArray();
}

Json::ArrayIndex sizeOf(const Json::Value& array) { return array.isArray() ? array.size() : 0; }

bool hasNoTypes(const Json::Value& registration) {
  return sizeOf(registration["storeType"]) == 0 && sizeOf(registration["watchType"]) == 0;
}

bool hasBadAddress(const Json::Value& registration) {
  const Json::Value& address = registration["executorAddr"];
  const std::string name = address["name"].asString();
  const std::string interface = address["interface"].asString();
  const std::string path = address["path"].asString();
  return name.empty() || interface.empty() || path.empty() || path.front() != '/';
}

bool isServed(const Json::Value& registration, const Executor* previous) {
  const Json::Value& address = registration["executorAddr"];
  return previous != nullptr && previous->proxy &&
         previous->proxy->isFor(json::textOf(address, "name"), json::textOf(address, "path"),
                                json::textOf(address, "interface"));
}

// What the store has under `key` while a registration may still be refused for want of
// connections: what is stored comes back at the next start.
std::optional<ConfigRead> rememberStored(const Json::Value& registration, const Executor* previous,
                                         const char* key) {
  if (isServed(registration, previous)) return std::nullopt;
  return readConfig(key);
}

// To read it again would take as long again, and its caller has gone by then.
bool isUnreadable(const std::optional<ConfigRead>& read) {
  return read && read->state == ConfigState::kUnreadable;
}

std::string connectOrPutBack(Executor& record, const char* key,
                             const std::optional<ConfigRead>& before) {
  std::string error = connectRecord(record);
  if (!error.empty() && before) putBack(key, *before);
  return error;
}

// Everything that can throw comes before the first table is touched.
std::string takeExecutor(const std::string& payload, const Json::Value& registration) {
  static_cast<void>(registration["linkType"].asInt());  // read for its type only
  const std::string executorName = registration["executorName"].asString();
  // A job list is kept under the executor's name.
  if (!isPathComponent(executorName) || isReservedKey(executorName)) {
    return "registerExecutor executorName error";
  }
  Tables& all = tables();
  const Executor* previous = find(all.executorMap, executorName);
  const std::optional<ConfigRead> before = rememberStored(registration, previous, key::kExecutors);
  const int stored =
      isUnreadable(before) ? kStoreUnreadable : saveExecutor2ConfigManager(executorName, payload);
  LOGI("saveExecutor2ConfigManager result = %d", stored);
  if (stored == kStoreUnreadable) return "registerExecutor configuration store can't be read";
  LOGI("user executorName = %s", executorName.c_str());
  if (hasBadAddress(registration)) return "registerExecutor executorAddr error";
  if (hasNoTypes(registration)) return "registerExecutor *Type param error";
  Executor record = readRecord(registration, previous);
  if (std::string error = connectOrPutBack(record, key::kExecutors, before); !error.empty()) {
    return error;
  }
  install(all.executorMap, executorName, std::move(record), &all.executorWatchMap);
  all.liveExecutors.insert(executorName);
  showExecutor(all.executorMap.at(executorName));
  return {};
}

void logParsers(const WatchMap& watchMap) {
  for (const auto& [type, names] : watchMap) {
    LOGI("resourceType: %s", type.c_str());
    for (const std::string& name : names) LOGI("    %s", name.c_str());
  }
}

// A restored registration isn't stored again over a newer one that has come in meanwhile.
int storeParser(const std::string& executorName, const Json::Value& registration, Origin origin) {
  if (origin == Origin::kRestored && tables().liveParsers.contains(executorName)) return 0;
  const int stored = saveToConfigManager(key::kParsers, executorName, registration);
  LOGI("saving parser %s to %s, result = %d", executorName.c_str(), key::kParsers, stored);
  if (origin == Origin::kLive) tables().liveParsers.insert(executorName);
  return stored;
}

std::string fillParser(const Json::Value& registration, Origin origin) {
  const std::string executorName = registration["executorName"].asString();
  if (!isPathComponent(executorName)) return "registerParser executorName error";
  Tables& all = tables();
  const Executor* previous = find(all.parserMap, executorName);
  const std::optional<ConfigRead> before = rememberStored(registration, previous, key::kParsers);
  const int stored =
      isUnreadable(before) ? kStoreUnreadable : storeParser(executorName, registration, origin);
  // What is restored is in the store already.
  if (stored == kStoreUnreadable && origin == Origin::kLive) {
    return "registerParser configuration store can't be read";
  }
  Executor record = readRecord(registration, previous);
  record.origin = origin;
  if ((!hasArray(registration, "storeType") && !hasArray(registration, "watchType")) ||
      hasNoTypes(registration)) {
    return "Parser should contain JSON ARRAY MEMBER storeType or watchType";
  }
  LOGI("Creating Executor with proxy: interface=%s path=%s wellknownName=%s",
       record.interface.c_str(), record.path.c_str(), record.name.c_str());
  if (std::string error = connectOrPutBack(record, key::kParsers, before); !error.empty()) {
    return error;
  }
  install(all.parserMap, executorName, std::move(record), &all.parserWatchMap);
  showParser(all.parserMap.at(executorName));
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
  return registry::takeParser(payload, Origin::kLive);
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
