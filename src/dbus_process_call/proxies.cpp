#include "dbus_process_call/proxies.h"

#include <memory>

namespace jobm {
namespace {

quillon::DProxy* makeProxy(const char* name, const char* path) {
  return std::make_unique<quillon::DProxy>(name, path, name).release();
}

}  // namespace

ProxyPointer mqttBridgeProxy = makeProxy("iot.bridge.mqtt", "/iot/bridge/mqtt");
ProxyPointer jobManagerProxy = makeProxy("iot.job.manager", "/iot/job/manager");
ProxyPointer busDaemonProxy = makeProxy("org.freedesktop.DBus", "/");
ProxyPointer devicePropertiesProxy = makeProxy("iot.device.properties", "/iot/device/properties");
ProxyPointer gatewayMonitorProxy = makeProxy("iot.gateway.monitor", "/iot/gateway/monitor");

void dropProxies() {
  mqttBridgeProxy = nullptr;
  jobManagerProxy = nullptr;
  busDaemonProxy = nullptr;
  devicePropertiesProxy = nullptr;
  gatewayMonitorProxy = nullptr;
}

}  // namespace jobm
