#pragma once

#include <dbus/dbus.h>

#include <cstdint>
#include <memory>

#include "dbus_wrap/DMessage.h"

namespace quillon {

/// Closes a private connection, which must happen before its last reference goes. Our own closing
/// is not the daemon going away: the connection no longer ends the process.
struct ConnectionCloser {
  void operator()(DBusConnection* connection) const;
};
using ConnectionPtr = std::unique_ptr<DBusConnection, ConnectionCloser>;

/// Opens private connections to the gateway's own bus daemon, which is neither the system bus nor a
/// per-user one.
class DConnection {
 public:
  /// Opens and registers one connection; it ends the process with status 1 when the daemon goes
  /// away. Null when there is no daemon. A connection that could be opened but not registered is
  /// returned as well, see "A connection that was not registered" in docs/architecture.md. Blocks
  /// for the daemon's answer; any thread.
  static ConnectionPtr getDbusConnection();

  /// True when there is a message and the bus would take it. Any thread.
  static bool isSendable(const std::shared_ptr<DMessage>& message);

 protected:
  /// Queues `message` on `connection` and sets *serial, where given, to the number it got. Returns
  /// false when there is no connection or no message, or the message is larger than the bus takes.
  static bool sendOn(DBusConnection* connection, const std::shared_ptr<DMessage>& message,
                     std::uint32_t* serial);
};

}  // namespace quillon
