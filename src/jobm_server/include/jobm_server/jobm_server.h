/// The service that this process offers on the bus as "iot.job.manager". Everything runs on the
/// listening thread, one call or signal after another, so a handler that blocks holds up all of
/// them.
#pragma once

#include <memory>

#include "dbus_wrap/DServer.h"

namespace jobm {

class JobManagerServer : public quillon::DServer {
 public:
  using DServer::DServer;
  ~JobManagerServer() override = default;

  /// Answers the service's methods. Any other member gets no reply, see "Unknown methods" in
  /// docs/architecture.md. A handler's exception is answered with code 100000. Returns true.
  bool onMethodCall(const char* member, const std::shared_ptr<quillon::DMessage>& request,
                    const std::shared_ptr<quillon::DMessage>& reply) override;

  /// Reacts to the signals of the script engine, the MQTT bridge, the watchdog and the bus daemon.
  /// Returns true.
  bool onSignalReceived(const char* member,
                        const std::shared_ptr<quillon::DMessage>& signal) override;

  /// Stops serving and ends the process with status 0. Nothing calls this yet.
  virtual void stop();
};

}  // namespace jobm
