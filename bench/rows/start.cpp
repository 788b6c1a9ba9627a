// From the start to the bus name, from the signal to the end.
#include <signal.h>

#include <string>
#include <vector>

#include "rows.h"
#include "support/gateway.h"
#include "support/process.h"

namespace bench {
namespace {

constexpr const char* kFloor = "bench.floor.start";

// When the bus says that `name` has an owner. `child` is who is to own it: nothing is to be waited
// for once it has ended.
double ownedAt(DBusConnection* connection, const std::string& name, Child& child) {
  while (dbus_connection_read_write(connection, 1000)) {
    const bool isSilent = dbus_connection_get_dispatch_status(connection) == DBUS_DISPATCH_COMPLETE;
    if (isSilent && child.end(0)) break;
    while (DBusMessage* raw = dbus_connection_pop_message(connection)) {
      const Message message(raw);
      if (!dbus_message_is_signal(raw, DBUS_INTERFACE_DBUS, "NameOwnerChanged")) continue;
      const std::vector<std::string> texts = textsOf(raw);
      if (texts.at(0) == name && !texts.at(2).empty()) return now();
    }
  }
  require(false, "the name was never owned");
  return 0;
}

void measure(const char* side, DBusConnection* connection, const std::string& name,
             const std::vector<std::string>& command) {
  double begin = now();
  Child child(command);
  sample("start", "start ms", side, (ownedAt(connection, name, child) - begin) * 1e3);
  begin = now();
  child.signal(SIGTERM);
  child.wait();
  sample("start", "stop ms", side, (now() - begin) * 1e3);
}

}  // namespace

void start(const Options& options) {
  const Connection connection = connectBus();
  dbus_bus_add_match(connection.get(), "type='signal',member='NameOwnerChanged'", nullptr);
  dbus_connection_flush(connection.get());
  for (int run = 0; run < options.runs; ++run) {
    // Short enough for several in every run.
    for (int i = 0; i < 4; ++i) {
      measure("service", connection.get(), kService, {beside("task-dispatcher")});
      for (const char* shape : kShapes) {
        measure(shape, connection.get(), kFloor,
                {beside("bench-floor"), "server", shape, kFloor, "0", "5"});
      }
    }
  }
}

}  // namespace bench
