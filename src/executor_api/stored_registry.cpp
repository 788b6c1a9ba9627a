#include "stored_registry.h"

#include <gateway/log_macros.h>

#include "executor_api/registry.h"
#include "lib/json_helper.h"
#include "wire/store_keys.h"

namespace jobm {
namespace registry {

std::optional<Json::Value> storedRegistrations(const std::string& key) {
  const ConfigRead read = readConfig(key);
  if (read.state == ConfigState::kUnreadable) return std::nullopt;
  Json::Value all;
  if (!json::parse(read.value, all) || !all.isObject()) all = Json::Value(Json::objectValue);
  return all;
}

void putBack(const std::string& key, const ConfigRead& before) {
  if (before.state == ConfigState::kUnreadable) return;
  const bool wasAbsent = before.state == ConfigState::kAbsent;
  if (setConfig(key, wasAbsent ? "{}" : before.value) != 0)
    LOGE("%s keeps a refused registration\n", key.c_str());
}

}  // namespace registry

int saveExecutor2ConfigManager(const std::string& executorName, const std::string& payload) {
  Json::Value registration;
  if (!json::parse(payload, registration)) {
    LOGE("configManager jobm_executors parse Error, Error content = %s\n", payload.c_str());
    return 1;
  }
  return saveToConfigManager(key::kExecutors, executorName, registration);
}

int saveToConfigManager(const std::string& key, const std::string& name, const Json::Value& value) {
  std::optional<Json::Value> all = registry::storedRegistrations(key);
  if (!all) return kStoreUnreadable;
  (*all)[name] = value;
  const std::string text = json::compact(*all);
  // One level deeper than the value came: what the next start couldn't read would cost everybody's
  // registration.
  if (Json::Value readBack; !json::parse(text, readBack)) return 1;
  return setConfig(key, text);
}

}  // namespace jobm
