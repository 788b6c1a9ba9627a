/// The process-wide proxies. They are made during static initialisation, in this order, and never
/// destroyed; the watchdog's terminate order sets the pointers to null while other threads may be
/// using the proxies. Load a pointer once per use and test it.
#pragma once

#include <atomic>

#include "dbus_wrap/DProxy.h"

namespace jobm {

using ProxyPointer = std::atomic<quillon::DProxy*>;

/// The MQTT bridge: all traffic to the cloud.
extern ProxyPointer mqttBridgeProxy;

/// This service's own name, as a client: configuration store, watchdog and emitted signals.
extern ProxyPointer jobManagerProxy;

/// The bus daemon itself.
extern ProxyPointer busDaemonProxy;

/// Nothing uses these yet, see "Proxies that nobody uses" in docs/architecture.md.
extern ProxyPointer devicePropertiesProxy;
extern ProxyPointer gatewayMonitorProxy;

/// Sets every pointer above to null; the proxies live on. Any thread.
void dropProxies();

}  // namespace jobm
