#include <gateway/config.h>
#include <gateway/log_macros.h>

#include <cstdlib>
#include <memory>

#include "dbus_process_call/dbus_process_call.h"
#include "dbus_process_call/proxies.h"

namespace jobm {
namespace {

constexpr int kTimeoutMs = 10000;

struct FreeBuffer {
  void operator()(char* buffer) const { std::free(buffer); }  // the library allocates with malloc
};

}  // namespace

std::string getConfig(const std::string& key) {
  quillon::DProxy* proxy = jobManagerProxy;
  if (proxy == nullptr) return {};
  return proxy->withBlockingConnection([&](DBusConnection* connection) -> std::string {
    char* raw = nullptr;
    const int result = get_config(connection, key.c_str(), &raw, kTimeoutMs);
    const std::unique_ptr<char, FreeBuffer> value(raw);
    return result == 0 && value ? std::string(value.get()) : std::string();
  });
}

int setConfig(const std::string& key, const std::string& value) {
  quillon::DProxy* proxy = jobManagerProxy;
  if (proxy == nullptr) return -1;
  return proxy->withBlockingConnection([&](DBusConnection* connection) {
    return set_config(connection, key.c_str(), value.c_str(), kTimeoutMs);
  });
}

bool isReservedKey(std::string_view key) {
  return key.starts_with("gw_system_") || key.starts_with("gw_jobm_");
}

int setForeignConfig(const std::string& key, const std::string& value) {
  if (!isReservedKey(key)) return setConfig(key, value);
  LOGW("key '%s' is this service's own and is not overwritten.\n", key.c_str());
  return -1;
}

}  // namespace jobm
