#include "bare.h"

#include <cstdlib>
#include <cstring>
#include <utility>

#include "events.h"
#include "polling.h"

namespace bench {

Shape shapeOf(const std::string& word) {
  require(word == "polling" || word == "events", "no such shape");
  return word == "polling" ? Shape::kPolling : Shape::kEvents;
}

BareServer::BareServer(const std::string& name, std::size_t answerBytes)
    : connection(connectBus()), bridge(name + ".bridge"), text(answerBytes, 'x') {
  requestName(connection.get(), name);
  const std::string rule = "type='signal',interface='" + bridge + "'";
  dbus_bus_add_match(connection.get(), rule.c_str(), nullptr);
  dbus_connection_flush(connection.get());
}

void BareServer::turn(int milliseconds) {
  if (!dbus_connection_read_write(connection.get(), milliseconds)) std::_Exit(0);
  while (DBusMessage* raw = dbus_connection_pop_message(connection.get())) {
    const Message message(raw);
    const int type = dbus_message_get_type(raw);
    if (type == DBUS_MESSAGE_TYPE_SIGNAL) {
      if (!dbus_message_has_interface(raw, bridge.c_str())) continue;  // the daemon's own
      ++signals;
    } else if (type == DBUS_MESSAGE_TYPE_METHOD_CALL) {
      answer(raw);
    }
    if (onMessage) onMessage(raw);
  }
}

void BareServer::answer(DBusMessage* call) {
  const bool isCount = std::strcmp(dbus_message_get_member(call), "count") == 0;
  const Message reply = makeReply(call, isCount ? std::to_string(signals) : text);
  dbus_connection_send(connection.get(), reply.get(), nullptr);
}

BareProxy::BareProxy() : blocking(connectBus()), async(connectBus()) {}

void BareProxy::send(DBusMessage* signal) {
  dbus_connection_send(async.get(), signal, nullptr);
  sent();
}

void BareProxy::send(DBusMessage* call, Callback callback) {
  const std::lock_guard guard(pendingLock);
  std::uint32_t serial = 0;
  dbus_connection_send(async.get(), call, &serial);
  sent();
  pending.emplace(serial, std::move(callback));
  filed();
}

bool BareProxy::queueReplies() {
  bool wasEmpty = false;
  while (DBusMessage* raw = dbus_connection_pop_message(async.get())) {
    Message message(raw);
    if (dbus_message_get_type(raw) != DBUS_MESSAGE_TYPE_METHOD_RETURN) continue;
    const std::lock_guard guard(replyLock);
    wasEmpty = wasEmpty || replies.empty();
    replies.push_back(std::move(message));
  }
  return wasEmpty;
}

void BareProxy::drain() {
  std::vector<Message> taken;
  {
    const std::lock_guard guard(replyLock);
    taken.swap(replies);
  }
  for (const Message& reply : taken) {
    Callback callback;
    {
      const std::lock_guard guard(pendingLock);
      auto node = pending.extract(dbus_message_get_reply_serial(reply.get()));
      if (node.empty()) continue;
      callback = std::move(node.mapped());
    }
    callback(reply.get());
  }
}

std::unique_ptr<BareServer> makeServer(Shape shape, const std::string& name,
                                       std::size_t answerBytes) {
  if (shape == Shape::kPolling) return std::make_unique<PollingServer>(name, answerBytes);
  return std::make_unique<EventServer>(name, answerBytes);
}

std::unique_ptr<BareProxy> makeProxy(Shape shape) {
  if (shape == Shape::kPolling) return std::make_unique<PollingProxy>();
  return std::make_unique<EventProxy>();
}

}  // namespace bench
