#include <gateway/config.h>

#include <cstring>
#include <exception>
#include <optional>
#include <string>

#include "config_store.h"

namespace {

constexpr int kFailed = -1;

}  // namespace

int get_config(DBusConnection* /*connection*/, const char* key, char** value, int timeout_ms) {
  if (key == nullptr || value == nullptr) return kFailed;
  try {
    const std::optional<std::string> found = config_store::get(key, timeout_ms);
    if (!found) return kFailed;
    char* copy = strdup(found->c_str());  // the caller frees it
    if (copy == nullptr) return kFailed;
    *value = copy;
    return 0;
  } catch (const std::exception&) {
    return kFailed;
  }
}

int set_config(DBusConnection* /*connection*/, const char* key, const char* value, int timeout_ms) {
  if (key == nullptr || value == nullptr) return kFailed;
  try {
    return config_store::set(key, value, timeout_ms);
  } catch (const std::exception&) {
    return kFailed;
  }
}
