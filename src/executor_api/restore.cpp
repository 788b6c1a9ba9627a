#include <gateway/log_macros.h>

#include <exception>
#include <utility>

#include "dbus_process_call/dbus_process_call.h"
#include "executor_api/registry.h"
#include "lib/json_helper.h"
#include "stored_registry.h"
#include "tables.h"
#include "wire/bus_names.h"
#include "wire/store_keys.h"

namespace jobm {
namespace registry {
namespace {

struct BuiltIn {
  const char* executorName;
  bus::Service service;
  std::vector<std::string> storeType;
};

const BuiltIn& rillmark() {
  static const BuiltIn executor{bus::kRillmarkExecutor, bus::kRillmark, {"file"}};
  return executor;
}

const BuiltIn& scriptEngine() {
  static const BuiltIn executor{bus::kScriptEngineExecutor, bus::kScriptEngine, {"file"}};
  return executor;
}

const BuiltIn& corvexConfig() {
  static const BuiltIn executor{bus::kCorvexConfigExecutor, bus::kCorvexConfig, {"file", "origin"}};
  return executor;
}

// False when the store could not be read.
bool restoreParsers() {
  const std::optional<Json::Value> stored = storedRegistrations(key::kParsers);
  if (!stored) return false;
  for (const std::string& name : stored->getMemberNames()) {
    const std::lock_guard guard(tables().lock);
    const bool isNewer = tables().liveParsers.contains(name) && tables().parserMap.contains(name);
    if (isNewer) continue;
    const std::string error =
        takeParser(json::compact(std::as_const(*stored)[name]), Origin::kRestored);
    if (!error.empty()) LOGW("stored parser %s is skipped: %s\n", name.c_str(), error.c_str());
  }
  return true;
}

// Without the checks of a live registration, and without entries in the watch table: an executor
// says itself, by registering, that it is back.
std::string takeRestored(const std::string& name, const Json::Value& registration) {
  try {
    if (isReservedKey(name)) return "reserved name";  // its job list could never be written
    Executor record = readRecord(registration, find(tables().executorMap, name));
    record.origin = Origin::kRestored;
    std::string error = connectRecord(record);
    if (error.empty()) install(tables().executorMap, name, std::move(record), nullptr);
    return error;
  } catch (const std::exception& e) {
    LOGE("registerExecutor json error ! e = %s", e.what());
    return "unreadable";
  }
}

void restoreExecutor(const std::string& name, const Json::Value& registration) {
  const std::lock_guard guard(tables().lock);
  if (tables().liveExecutors.contains(name)) return;
  const std::string error = takeRestored(name, registration);
  if (!error.empty()) LOGW("stored executor %s is skipped: %s\n", name.c_str(), error.c_str());
}

bool restoreExecutors() {
  const ConfigRead read = readConfig(key::kExecutors);
  LOGI("initAllExecutors payload = %s", read.value.c_str());
  if (read.state == ConfigState::kUnreadable) return false;
  Json::Value parsed;
  if (!json::parse(read.value, parsed) || !parsed.isObject()) return true;
  const Json::Value& stored = parsed;
  for (const std::string& name : stored.getMemberNames()) restoreExecutor(name, stored[name]);
  return true;
}

void addDefaultWatches() {
  const std::lock_guard guard(tables().lock);
  WatchMap& watchMap = tables().executorWatchMap;
  watchMap["function"].insert(bus::kCorvexConfigExecutor);
  watchMap["driver"].insert(bus::kCorvexConfigExecutor);
  watchMap["driver"].insert("driver_manager");
  watchMap["rule"].insert(bus::kScriptEngineExecutor);
  watchMap["stream"].insert(bus::kRillmarkExecutor);
}

Json::Value registrationOf(const BuiltIn& builtIn) {
  Json::Value registration;
  registration["executorName"] = builtIn.executorName;
  Json::Value& address = registration["executorAddr"];
  address["name"] = address["interface"] = builtIn.service.name;
  address["path"] = builtIn.service.path;
  for (const std::string& type : builtIn.storeType) registration["storeType"].append(type);
  return registration;
}

// With the lock held. There is always a record, and a proxy out of the reserve when the descriptors
// are short.
void installBuiltIn(const BuiltIn& builtIn) {
  Executor record =
      readRecord(registrationOf(builtIn), find(tables().executorMap, builtIn.executorName));
  record.origin = Origin::kBuiltIn;
  if (const std::string error = connectRecord(record); !error.empty()) {
    record.proxy = std::make_shared<quillon::DProxy>(builtIn.service.name, builtIn.service.path,
                                                     builtIn.service.name);
    if (!record.proxy->isConnected()) {
      LOGE("no proxy for %s: %s\n", builtIn.executorName, error.c_str());
    }
  }
  install(tables().executorMap, builtIn.executorName, std::move(record), nullptr);
}

void installIfAbsent(const BuiltIn& builtIn) {
  const std::lock_guard guard(tables().lock);
  if (!tables().executorMap.contains(builtIn.executorName)) installBuiltIn(builtIn);
}

// Replaces a restored record, whatever it says; only the engine's own registration is newer.
void installScriptEngine() {
  const std::lock_guard guard(tables().lock);
  const char* name = scriptEngine().executorName;
  if (!tables().liveExecutors.contains(name)) installBuiltIn(scriptEngine());
}

}  // namespace
}  // namespace registry

bool initAllExecutors() {
  const bool hasParsers = registry::restoreParsers();
  const bool hasExecutors = registry::restoreExecutors();
  registry::addDefaultWatches();
  registry::installIfAbsent(registry::rillmark());
  registry::installScriptEngine();
  registry::installIfAbsent(registry::corvexConfig());
  registry::showAll();
  return hasParsers && hasExecutors;
}

}  // namespace jobm
