#include "dbus_wrap/DConnection.h"

#include <gateway/log_macros.h>
#include <gateway/output.h>

#include "DBusErrorGuard.h"

namespace quillon {
namespace {

constexpr const char* kBusAddress = "unix:path=/tmp/var/run/mbusd/mbusd_socket";
// Whatever the line is now, see "Log lines in another's name" in docs/architecture.md.
constexpr int kConnectionLine = 18;

}  // namespace

void ConnectionCloser::operator()(DBusConnection* connection) const {
  dbus_connection_set_exit_on_disconnect(connection, FALSE);
  dbus_connection_close(connection);
  dbus_connection_unref(connection);
}

ConnectionPtr DConnection::getDbusConnection() {
  DBusErrorGuard error;
  ConnectionPtr connection(dbus_connection_open_private(kBusAddress, error.get()));
  gateway::printGuarded("%s %d connection : %p\n", "getDbusConnection", kConnectionLine,
                        static_cast<void*>(connection.get()));
  if (connection && dbus_bus_register(connection.get(), error.get())) {
    dbus_connection_set_exit_on_disconnect(connection.get(), TRUE);
  } else if (error.isSet()) {
    gateway::printGuarded("[%s] getDbusConnection failed: %s \n", "quillon::DConnection",
                          error.message());
  }
  return connection;
}

bool DConnection::isSendable(const std::shared_ptr<DMessage>& message) {
  return message && message->raw() != nullptr && message->fitsBus();
}

bool DConnection::sendOn(DBusConnection* connection, const std::shared_ptr<DMessage>& message,
                         std::uint32_t* serial) {
  if (connection == nullptr) return false;
  if (message && !message->fitsBus()) {
    LOGW("message of more than %zu bytes is not sent.\n", DMessage::kMaxBytes);
  }
  return isSendable(message) && dbus_connection_send(connection, message->raw(), serial);
}

}  // namespace quillon
