/// A thin cover over libdbus for whoever stands beside the service or measures it: nothing of what
/// is tested or measured is in it.
#pragma once

#include <dbus/dbus.h>

#include <memory>
#include <string>
#include <vector>

namespace gateway {

struct ConnectionCloser {
  void operator()(DBusConnection* connection) const;
};
using Connection = std::unique_ptr<DBusConnection, ConnectionCloser>;

struct MessageRelease {
  void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, MessageRelease>;

/// Says `what` and ends the program when `condition` does not hold.
void require(bool condition, const char* what);

/// The service's bus.
inline constexpr const char* kBusAddress = "unix:path=/tmp/var/run/mbusd/mbusd_socket";

/// Whether a daemon takes connections at the service's address.
bool isBusThere();

/// A private connection that the daemon at `address` has registered. None without a daemon, and
/// when it refuses; `why` then says what was wrong.
Connection openBus(const std::string& address, std::string& why);

/// The same at the service's address. Ends the program without one.
Connection connectBus();

/// Takes a name, or ends the program. For the connection's own thread.
void requestName(DBusConnection* connection, const std::string& name);

/// The object path that goes with a service's name, "/iot/test" for "iot.test".
std::string pathOf(const std::string& service);

/// A method call and a signal, whose path and interface follow from the service's name.
Message makeCall(const std::string& service, const std::string& member,
                 const std::vector<std::string>& texts);
Message makeSignal(const std::string& service, const std::string& member,
                   const std::vector<std::string>& texts);

/// The reply to a call with one text.
Message makeReply(DBusMessage* call, const std::string& text);

/// Adds text arguments.
void append(DBusMessage* message, const std::vector<std::string>& texts);

/// The message's texts, in order; other arguments are left out.
std::vector<std::string> textsOf(DBusMessage* message);

/// Sends a call and waits up to `milliseconds` for its reply, an error's included. None when the
/// time is over or the connection lost.
Message callAndWait(DBusConnection* connection, DBusMessage* call, int milliseconds);

}  // namespace gateway
