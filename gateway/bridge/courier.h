/// Brings what lies in the outbox to the broker, in order, and removes what has arrived. Used on
/// the bus thread only.
#pragma once

#include <cstdint>
#include <map>

#include "common/mqtt_client.h"
#include "outbox.h"

namespace gateway {

class Courier {
 public:
  Courier(Outbox& givenOutbox, MqttClient& givenMqtt) : outbox(givenOutbox), mqtt(givenMqtt) {}

  /// The connection to the broker is up, or lost.
  void connectivityChanged(bool connected);

  /// Sends what may be sent; for after something was added.
  void send();

  /// The broker has the packet with this number.
  void acknowledged(int packet);

 private:
  bool handOver(const Outbox::Message& message);

  Outbox& outbox;
  MqttClient& mqtt;
  bool connected = false;
  // What is in flight from before the connection was lost: the library sends it again by itself,
  // and behind what we hand it meanwhile.
  bool resuming = false;
  std::int64_t lastSent = 0;             // id of a message in the outbox
  std::map<int, std::int64_t> inFlight;  // packet number -> id
};

}  // namespace gateway
