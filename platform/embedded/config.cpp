#include <gateway/config.h>

#include <cstring>
#include <exception>
#include <string>

#include "config_store.h"

namespace {

constexpr int kAbsent = -1;
constexpr int kNotStored = -1;

}  // namespace

int get_config(DBusConnection* /*connection*/, const char* key, char** value, int timeout_ms) {
  if (key == nullptr || value == nullptr) return GATEWAY_CONFIG_UNREADABLE;
  try {
    const auto [wasRead, found] = config_store::get(key, timeout_ms);
    if (!wasRead) return GATEWAY_CONFIG_UNREADABLE;
    if (!found) return kAbsent;
    char* copy = strdup(found->c_str());  // the caller frees it
    if (copy == nullptr) return GATEWAY_CONFIG_UNREADABLE;
    *value = copy;
    return 0;
  } catch (const std::exception&) {
    return GATEWAY_CONFIG_UNREADABLE;
  }
}

int set_config(DBusConnection* /*connection*/, const char* key, const char* value, int timeout_ms) {
  if (key == nullptr || value == nullptr) return kNotStored;
  try {
    return config_store::set(key, value, timeout_ms);
  } catch (const std::exception&) {
    return kNotStored;
  }
}
