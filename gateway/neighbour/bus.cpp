#include "bus.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace gateway {
namespace {

struct PendingRelease {
  void operator()(DBusPendingCall* call) const { dbus_pending_call_unref(call); }
};

struct Failure : DBusError {
  Failure() { dbus_error_init(this); }
  ~Failure() { dbus_error_free(this); }
  Failure(const Failure&) = delete;
  Failure& operator=(const Failure&) = delete;
};

}  // namespace

void ConnectionCloser::operator()(DBusConnection* connection) const {
  dbus_connection_close(connection);
  dbus_connection_unref(connection);
}

void require(bool condition, const char* what) {
  if (condition) return;
  std::fprintf(stderr, "%s\n", what);
  _exit(1);  // other threads go on, so nothing is cleared away
}

bool isBusThere() {
  const Connection connection(dbus_connection_open_private(kBusAddress, nullptr));
  return connection != nullptr;
}

Connection openBus(const std::string& address, std::string& why) {
  Failure failure;
  Connection connection(dbus_connection_open_private(address.c_str(), &failure));
  if (!connection || !dbus_bus_register(connection.get(), &failure)) {
    why = failure.message;
    return {};
  }
  dbus_connection_set_exit_on_disconnect(connection.get(), FALSE);
  return connection;
}

Connection connectBus() {
  std::string why;
  Connection connection = openBus(kBusAddress, why);
  require(connection != nullptr, "no bus daemon");
  return connection;
}

void requestName(DBusConnection* connection, const std::string& name) {
  const int result =
      dbus_bus_request_name(connection, name.c_str(), DBUS_NAME_FLAG_DO_NOT_QUEUE, nullptr);
  require(result == DBUS_REQUEST_NAME_REPLY_PRIMARY_OWNER, (name + " is taken").c_str());
}

std::string pathOf(const std::string& service) {
  std::string path = "/" + service;
  std::replace(path.begin(), path.end(), '.', '/');
  return path;
}

void append(DBusMessage* message, const std::vector<std::string>& texts) {
  for (const std::string& text : texts) {
    const char* raw = text.c_str();
    dbus_message_append_args(message, DBUS_TYPE_STRING, &raw, DBUS_TYPE_INVALID);
  }
}

Message makeCall(const std::string& service, const std::string& member,
                 const std::vector<std::string>& texts) {
  Message call(dbus_message_new_method_call(service.c_str(), pathOf(service).c_str(),
                                            service.c_str(), member.c_str()));
  append(call.get(), texts);
  return call;
}

Message makeSignal(const std::string& service, const std::string& member,
                   const std::vector<std::string>& texts) {
  Message signal(dbus_message_new_signal(pathOf(service).c_str(), service.c_str(), member.c_str()));
  append(signal.get(), texts);
  return signal;
}

Message makeReply(DBusMessage* call, const std::string& text) {
  Message reply(dbus_message_new_method_return(call));
  append(reply.get(), {text});
  return reply;
}

std::vector<std::string> textsOf(DBusMessage* message) {
  std::vector<std::string> texts;
  DBusMessageIter it;
  for (bool more = dbus_message_iter_init(message, &it); more; more = dbus_message_iter_next(&it)) {
    if (dbus_message_iter_get_arg_type(&it) != DBUS_TYPE_STRING) continue;
    const char* text = nullptr;
    dbus_message_iter_get_basic(&it, static_cast<void*>(&text));
    texts.emplace_back(text);
  }
  return texts;
}

Message callAndWait(DBusConnection* connection, DBusMessage* call, int milliseconds) {
  DBusPendingCall* raw = nullptr;
  dbus_connection_send_with_reply(connection, call, &raw, milliseconds);
  if (raw == nullptr) return {};
  const std::unique_ptr<DBusPendingCall, PendingRelease> pending(raw);
  dbus_pending_call_block(raw);
  Message reply(dbus_pending_call_steal_reply(raw));
  // What libdbus makes up for a time-out has no sender.
  if (dbus_message_get_sender(reply.get()) == nullptr) reply.reset();
  return reply;
}

}  // namespace gateway
