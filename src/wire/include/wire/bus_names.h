/// The services on the gateway's bus, by well-known name and object path. A service's interface is
/// called like the service, but for the bus daemon's.
#pragma once

namespace jobm::bus {

struct Service {
  const char* name;
  const char* path;
};

inline constexpr Service kJobManager{"iot.job.manager", "/iot/job/manager"};  // this one
inline constexpr Service kBridge{"iot.bridge.mqtt", "/iot/bridge/mqtt"};
inline constexpr Service kWatchdog{"iot.gateway.watchdog", "/iot/gateway/watchdog"};
inline constexpr Service kLog{"iot.gateway.log_system", "/iot/gateway/log_system"};
inline constexpr Service kDaemon{"org.freedesktop.DBus", "/"};
inline constexpr Service kDeviceProperties{"iot.device.properties", "/iot/device/properties"};
inline constexpr Service kGatewayMonitor{"iot.gateway.monitor", "/iot/gateway/monitor"};

// The executors of every gateway.
inline constexpr Service kScriptEngine{"iot.runtime.js", "/iot/runtime/js"};
inline constexpr Service kRillmark{"iot.edge.Rillmark", "/iot/edge/Rillmark"};
inline constexpr Service kCorvexConfig{"iot.gateway.cvbase", "/iot/gateway/cvbase"};

/// The executor names of the three.
inline constexpr const char* kScriptEngineExecutor = "IFTTTEngine";
inline constexpr const char* kRillmarkExecutor = "Rillmark";
inline constexpr const char* kCorvexConfigExecutor = "CorvexConfig";

}  // namespace jobm::bus
