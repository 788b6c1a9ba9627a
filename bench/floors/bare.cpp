#include "bare.h"

#include <cstdlib>
#include <cstring>
#include <utility>

namespace bench {
namespace {

constexpr int kWaitMs = 10;
constexpr std::uint64_t kDrainMs = 10;
constexpr std::uint64_t kAgeMs = 2000;

}  // namespace

BareServer::BareServer(const std::string& name, std::size_t answerBytes)
    : connection(connectBus()), bridge(name + ".bridge"), text(answerBytes, 'x') {
  requestName(connection.get(), name);
  const std::string rule = "type='signal',interface='" + bridge + "'";
  dbus_bus_add_match(connection.get(), rule.c_str(), nullptr);
  dbus_connection_flush(connection.get());
  uv_idle_init(uv_default_loop(), &idle);
  idle.data = this;
  uv_idle_start(&idle, [](uv_idle_t* handle) { static_cast<BareServer*>(handle->data)->turn(); });
}

void BareServer::turn() {
  if (!dbus_connection_read_write(connection.get(), kWaitMs)) std::_Exit(0);
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

BareProxy::BareProxy() : blocking(connectBus()), async(connectBus()) {
  uv_timer_init(uv_default_loop(), &ageTimer);
  ageTimer.data = this;
  uv_timer_start(
      &ageTimer,
      [](uv_timer_t* timer) {
        const std::lock_guard guard(static_cast<BareProxy*>(timer->data)->pendingLock);
      },
      0, kAgeMs);
  uv_timer_init(uv_default_loop(), &replyTimer);
  replyTimer.data = this;
  uv_timer_start(
      &replyTimer, [](uv_timer_t* timer) { static_cast<BareProxy*>(timer->data)->drain(); }, 0,
      kDrainMs);
  worker = std::thread([this] { read(); });
}

BareProxy::~BareProxy() {
  stopping = true;
  worker.join();
}

void BareProxy::send(DBusMessage* signal) { dbus_connection_send(async.get(), signal, nullptr); }

void BareProxy::send(DBusMessage* call, Callback callback) {
  const std::lock_guard guard(pendingLock);
  std::uint32_t serial = 0;
  dbus_connection_send(async.get(), call, &serial);
  pending.emplace(serial, std::move(callback));
}

void BareProxy::read() {
  while (!stopping && dbus_connection_read_write(async.get(), kWaitMs)) {
    while (DBusMessage* raw = dbus_connection_pop_message(async.get())) {
      Message message(raw);
      if (dbus_message_get_type(raw) != DBUS_MESSAGE_TYPE_METHOD_RETURN) continue;
      const std::lock_guard guard(replyLock);
      replies.push_back(std::move(message));
    }
  }
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

}  // namespace bench
