#include <gateway/log_macros.h>

#include <exception>
#include <utility>

#include "dbus_process_call/dbus_process_call.h"
#include "lib/json_helper.h"
#include "tables.h"

namespace jobm {
namespace registry {
namespace {

struct BuiltIn {
  const char* executorName;
  const char* name;  // bus name and interface
  const char* path;
  std::vector<std::string> storeType;
};

const BuiltIn& rillmark() {
  static const BuiltIn executor{"Rillmark", "iot.edge.Rillmark", "/iot/edge/Rillmark", {"file"}};
  return executor;
}

const BuiltIn& scriptEngine() {
  static const BuiltIn executor{"IFTTTEngine", "iot.runtime.js", "/iot/runtime/js", {"file"}};
  return executor;
}

const BuiltIn& corvexConfig() {
  static const BuiltIn executor{
      "CorvexConfig", "iot.gateway.cvbase", "/iot/gateway/cvbase", {"file", "origin"}};
  return executor;
}

void restoreParsers() {
  Json::Value stored;
  if (!json::parse(getConfig(kParsersKey), stored) || !stored.isObject()) return;
  for (const std::string& name : stored.getMemberNames()) {
    const std::lock_guard guard(tables().lock);
    const bool isNewer = tables().liveParsers.contains(name) && tables().parserMap.contains(name);
    if (!isNewer) takeParser(json::compact(stored[name]), Origin::kRestored);
  }
}

// Deliberately without the checks of a live registration, and without entries in the watch table.
void restoreExecutor(const std::string& name, const Json::Value& registration) {
  const std::lock_guard guard(tables().lock);
  if (tables().liveExecutors.contains(name)) return;
  try {
    const std::string executorName = registration["executorName"].asString();
    Executor executor = makeExecutor(readAddress(registration), executorName, nullptr);
    executor.storeType = readTexts(registration["storeType"]);
    executor.watchType = readTexts(registration["watchType"]);
    tables().executorMap.insert_or_assign(name, std::move(executor));
  } catch (const std::exception& e) {
    LOGE("registerExecutor json error ! e = %s", e.what());
  }
}

void restoreExecutors() {
  const std::string payload = getConfig(kExecutorsKey);
  LOGI("initAllExecutors payload = %s", payload.c_str());
  Json::Value stored;
  if (!json::parse(payload, stored) || !stored.isObject()) return;
  for (const std::string& name : stored.getMemberNames()) restoreExecutor(name, stored[name]);
}

void addDefaultWatches() {
  const std::lock_guard guard(tables().lock);
  WatchMap& watchMap = tables().executorWatchMap;
  watchMap["function"].insert("CorvexConfig");
  watchMap["driver"].insert("CorvexConfig");
  watchMap["driver"].insert("driver_manager");
  watchMap["rule"].insert("IFTTTEngine");
  watchMap["stream"].insert("Rillmark");
}

// With the lock held.
void install(const BuiltIn& builtIn) {
  Executor executor =
      makeExecutor({builtIn.name, builtIn.name, builtIn.path}, builtIn.executorName, nullptr);
  executor.storeType = builtIn.storeType;
  tables().executorMap.insert_or_assign(builtIn.executorName, std::move(executor));
}

void installIfAbsent(const BuiltIn& builtIn) {
  const std::lock_guard guard(tables().lock);
  if (!tables().executorMap.contains(builtIn.executorName)) install(builtIn);
}

// Replaces a restored record, whatever it says; only the engine's own registration is newer.
void installScriptEngine() {
  const std::lock_guard guard(tables().lock);
  const char* name = scriptEngine().executorName;
  if (!tables().liveExecutors.contains(name)) install(scriptEngine());
}

}  // namespace
}  // namespace registry

void initAllExecutors() {
  registry::restoreParsers();
  registry::restoreExecutors();
  registry::addDefaultWatches();
  registry::installIfAbsent(registry::rillmark());
  registry::installScriptEngine();
  registry::installIfAbsent(registry::corvexConfig());
}

}  // namespace jobm
