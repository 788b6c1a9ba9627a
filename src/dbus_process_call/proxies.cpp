#include "dbus_process_call/proxies.h"

#include <memory>

#include "wire/bus_names.h"

namespace jobm {
namespace {

quillon::DProxy* makeProxy(const bus::Service& service) {
  return std::make_unique<quillon::DProxy>(service.name, service.path, service.name).release();
}

}  // namespace

ProxyPointer mqttBridgeProxy = makeProxy(bus::kBridge);
ProxyPointer jobManagerProxy = makeProxy(bus::kJobManager);
ProxyPointer busDaemonProxy = makeProxy(bus::kDaemon);
ProxyPointer devicePropertiesProxy = makeProxy(bus::kDeviceProperties);
ProxyPointer gatewayMonitorProxy = makeProxy(bus::kGatewayMonitor);

void dropProxies() {
  mqttBridgeProxy = nullptr;
  jobManagerProxy = nullptr;
  busDaemonProxy = nullptr;
  devicePropertiesProxy = nullptr;
  gatewayMonitorProxy = nullptr;
}

}  // namespace jobm
