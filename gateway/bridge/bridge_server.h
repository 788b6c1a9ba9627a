/// The MQTT bridge's bus service: publishes and subscribes for others, and hands them what arrives.
#pragma once

#include <string>

#include "common/mqtt_client.h"
#include "courier.h"
#include "dbus_wrap/DServer.h"
#include "outbox.h"
#include "store.h"
#include "subscriptions.h"

namespace gateway {

struct BridgeSettings {
  std::string host;
  int port;
  std::string stateFile;  // where subscriptions and messages outlive the bridge; empty: they don't
  std::string clientId;
};

class BridgeServer : public quillon::DServer {
 public:
  explicit BridgeServer(const BridgeSettings& settings);

  /// Takes the bus name, starts the broker's thread and serves for ever. Returns only when the bus
  /// name or the state file can't be had: 1.
  int serve();

  bool onMethodCall(const char* member, const std::shared_ptr<quillon::DMessage>& request,
                    const std::shared_ptr<quillon::DMessage>& reply) override;
  bool onSignalReceived(const char* member,
                        const std::shared_ptr<quillon::DMessage>& signal) override;

 private:
  // What a method answers: empty for success, else the reason of the refusal.
  std::string publish(quillon::DMessage& request);
  std::string subscribe(quillon::DMessage& request);
  std::string unsubscribe(quillon::DMessage& request);

  void connectivityChanged(bool connected);
  void deliver(const std::string& topic, const std::string& payload);

  const BridgeSettings settings;
  MqttClient mqtt;
  // Bus thread only.
  bool connected = false;
  Store store;
  Subscriptions subscriptions;
  Outbox outbox;
  Courier courier;
};

}  // namespace gateway
