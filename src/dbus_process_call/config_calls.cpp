#include <gateway/config.h>
#include <gateway/log_macros.h>

#include <cstdlib>
#include <memory>

#include "dbus_process_call/dbus_process_call.h"
#include "dbus_process_call/proxies.h"
#include "wire/store_keys.h"

namespace jobm {
namespace {

constexpr int kTimeoutMs = 10000;

struct FreeBuffer {
  void operator()(char* buffer) const { std::free(buffer); }  // the library allocates with malloc
};

ConfigState stateOf(int result) {
  if (result == 0) return ConfigState::kFound;
#ifdef GATEWAY_CONFIG_UNREADABLE  // the header of a gateway's own library may know no such result
  if (result == GATEWAY_CONFIG_UNREADABLE) return ConfigState::kUnreadable;
#endif
  return ConfigState::kAbsent;
}

}  // namespace

ConfigRead readConfig(const std::string& key) {
  quillon::DProxy* proxy = jobManagerProxy;
  if (proxy == nullptr) return {};
  return proxy->withBlockingConnection([&](DBusConnection* connection) -> ConfigRead {
    char* raw = nullptr;
    const ConfigState state = stateOf(get_config(connection, key.c_str(), &raw, kTimeoutMs));
    const std::unique_ptr<char, FreeBuffer> value(raw);
    if (state != ConfigState::kFound) return {state, {}};
    return {value ? state : ConfigState::kAbsent, value ? value.get() : ""};
  });
}

std::string getConfig(const std::string& key) { return readConfig(key).value; }

int setConfig(const std::string& key, const std::string& value) {
  quillon::DProxy* proxy = jobManagerProxy;
  if (proxy == nullptr) return -1;
  return proxy->withBlockingConnection([&](DBusConnection* connection) {
    return set_config(connection, key.c_str(), value.c_str(), kTimeoutMs);
  });
}

bool isReservedKey(std::string_view key) {
  return key.starts_with(key::kSystemPrefix) || key.starts_with(key::kServicePrefix);
}

int setForeignConfig(const std::string& key, const std::string& value) {
  if (!isReservedKey(key)) return setConfig(key, value);
  LOGW("key '%s' is this service's own and is not overwritten.\n", key.c_str());
  return -1;
}

}  // namespace jobm
