#include "courier.h"

#include <gateway/log_macros.h>

namespace gateway {
namespace {

// As many as the library has in flight; it would queue the others.
constexpr std::size_t kWindow = 20;

}  // namespace

void Courier::connectivityChanged(bool now) {
  connected = now;
  resuming = !inFlight.empty();
  send();
}

void Courier::send() {
  while (connected && !resuming && inFlight.size() < kWindow) {
    const auto message = outbox.next(lastSent);
    if (!message || !handOver(*message)) return;
    lastSent = message->id;
  }
}

void Courier::acknowledged(int packet) {
  const auto sent = inFlight.find(packet);
  if (sent == inFlight.end()) return;
  outbox.remove(sent->second);
  inFlight.erase(sent);
  if (inFlight.empty()) resuming = false;
  send();
}

// Returns false when it must be tried again later.
bool Courier::handOver(const Outbox::Message& message) {
  int packet = 0;
  const Handed handed = mqtt.publish(message.topic, message.payload, message.qos, &packet);
  if (handed == Handed::kLater) return false;
  if (handed == Handed::kTaken && message.qos > 0) {
    inFlight[packet] = message.id;
    return true;
  }
  // Quality 0 promises no more than the attempt; and what the library never takes would be in the
  // way of all that follows.
  if (handed == Handed::kNever) LOGE("a message on %s is dropped", message.topic.c_str());
  outbox.remove(message.id);
  return true;
}

}  // namespace gateway
