#include "dbus_wrap/DProxy.h"

#include <gateway/log_macros.h>

#include <utility>

#include "DBusErrorGuard.h"
#include "ProxyWorker.h"
#include "dbus_wrap/ProxyHook.h"

namespace quillon {
namespace {

constexpr const char* kBlocking = "sendMessageWithReplyBlocking";

struct PendingCallRelease {
  void operator()(DBusPendingCall* call) const { dbus_pending_call_unref(call); }
};
using PendingCallPtr = std::unique_ptr<DBusPendingCall, PendingCallRelease>;

// A connection that the daemon refused to register will be dropped by it, which must not look like
// the daemon going away.
bool isRegistered(const ConnectionPtr& connection) {
  return connection && dbus_bus_get_unique_name(connection.get()) != nullptr;
}

// Nobody reads this connection between calls; what others address to it (the daemon its name, to
// begin with) must not pile up. A pop on a lost connection would end the process without a word.
void dropUnasked(DBusConnection* connection) {
  while (dbus_connection_get_is_connected(connection)) {
    DBusMessage* message = dbus_connection_pop_message(connection);
    if (message == nullptr) return;
    dbus_message_unref(message);
  }
}

// A pending call keeps error replies, unlike libdbus's own blocking call.
DBusMessage* callAndWait(DBusConnection* connection, DBusMessage* message) {
  DBusPendingCall* raw = nullptr;
  if (!dbus_connection_send_with_reply(connection, message, &raw, -1) || raw == nullptr) {
    return nullptr;
  }
  const PendingCallPtr pending(raw);
  dbus_pending_call_block(pending.get());
  DBusMessage* reply = dbus_pending_call_steal_reply(pending.get());
  dropUnasked(connection);
  return reply;
}

void logFailedCall(DBusMessage* message) {
  DBusErrorGuard error;
  dbus_set_error_from_message(error.get(), message);
  LOGD("dbus_connection_send_with_reply_and_block failed: %s \n", error.message());
}

// Null but in programs without a bus. Set before there is a second thread.
ProxyHook* proxyHook = nullptr;

}  // namespace

void setProxyHook(ProxyHook& hook) { proxyHook = &hook; }

DProxy::DProxy(const char* serviceName, const char* servicePath, const char* serviceInterface)
    : wellknownName(serviceName), path(servicePath), interface(serviceInterface) {
  if (proxyHook != nullptr) {
    connected = true;
    return;
  }
  ConnectionPtr async = getDbusConnection();
  mConnectionBlocking = getDbusConnection();
  if (!isRegistered(async) || !isRegistered(mConnectionBlocking)) return;
  dropUnasked(mConnectionBlocking.get());
  worker = std::make_shared<ProxyWorker>(std::move(async));
  connected = worker->startWorkers();
  if (connected) LOGI("DProxy workers started. wellknown name: %s", wellknownName.c_str());
}

DProxy::~DProxy() {
  LOGD("release connection for '%s'.\n", path.c_str());
  if (!worker) return;
  LOGD("release connection for mConnectionAsync \n");
  worker->release();
}

bool DProxy::sendMessageWithReply(const std::shared_ptr<DMessage>& message, ReplyCallback callback,
                                  void* userData) {
  if (proxyHook != nullptr) {
    return proxyHook->sendMessageWithReply(*this, message, std::move(callback), userData);
  }
  if (!connected) {
    LOGW("Connection to '%s' is not established.\n", path.c_str());
    return false;
  }
  return worker->sendMessageWithReply(message, std::move(callback), userData);
}

std::shared_ptr<DMessage> DProxy::sendMessageWithReplyBlocking(
    const std::shared_ptr<DMessage>& message) {
  if (proxyHook != nullptr) return proxyHook->sendMessageWithReplyBlocking(message);
  if (!connected) {
    LOGW("Connection to '%s' is not established.\n", path.c_str());
    return {};
  }
  DBusMessage* raw = nullptr;
  if (isSendable(message)) {
    raw = withBlockingConnection(
        [&](DBusConnection* connection) { return callAndWait(connection, message->raw()); });
  }
  std::shared_ptr<DMessage> reply;
  if (raw != nullptr) reply = std::make_shared<DMessage>(raw, true, DMessage::kRead);
  const bool isError = reply && dbus_message_get_type(raw) == DBUS_MESSAGE_TYPE_ERROR;
  if (isError) logFailedCall(raw);
  // An error without a sender never crossed the bus: libdbus makes it up for a time-out or a lost
  // connection.
  if (!reply || (isError && dbus_message_get_sender(raw) == nullptr)) {
    LOGD("[%s]return message is NULL!\n", kBlocking);
    return {};
  }
  if (isError) {
    LOGE("[%s]return message type is DBUS_MESSAGE_TYPE_ERROR reason: %s \n", kBlocking,
         reply->getErrorName().c_str());
  }
  return reply;
}

int DProxy::sendSignal(const std::shared_ptr<DMessage>& message) {
  if (proxyHook != nullptr) return proxyHook->sendSignal(message);
  if (!connected) {
    LOGE("Connection to '%s' is not established.\n", path.c_str());
    return -1;
  }
  if (worker->sendSignal(message)) return 0;
  LOGD("send signal failed.\n");
  return -1;
}

void DProxy::stopWorkers() {
  if (worker) worker->stopWorkers();
}

}  // namespace quillon
