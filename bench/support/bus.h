/// A thin cover over libdbus for the benchmarks, so that no measured code is in what measures.
#pragma once

#include <dbus/dbus.h>

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace bench {

struct ConnectionCloser {
  void operator()(DBusConnection* connection) const;
};
using Connection = std::unique_ptr<DBusConnection, ConnectionCloser>;

struct MessageRelease {
  void operator()(DBusMessage* message) const { dbus_message_unref(message); }
};
using Message = std::unique_ptr<DBusMessage, MessageRelease>;

/// A private connection to the daemon at the service's address. Ends the program without one.
Connection connectBus();

/// Takes a name, or ends the program. For the connection's own thread.
void requestName(DBusConnection* connection, const std::string& name);

/// A method call (path and interface follow from the service's name) and a signal.
Message makeCall(const std::string& service, const std::string& member,
                 const std::vector<std::string>& texts);
Message makeSignal(const std::string& service, const std::string& member,
                   const std::vector<std::string>& texts);

/// The reply to a call with one text.
Message makeReply(DBusMessage* call, const std::string& text);

/// The message's texts, in order; other arguments are left out.
std::vector<std::string> textsOf(DBusMessage* message);

/// Sends a call and waits for its reply. Ends the program when there is none.
Message callBlocking(DBusConnection* connection, DBusMessage* call);

/// Says `what` and ends the program when `condition` does not hold: a figure of a run in which
/// something went wrong is worse than none.
void require(bool condition, const char* what);

}  // namespace bench
