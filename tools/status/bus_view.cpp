#include "bus_view.h"

#include <utility>

#include "neighbour/daemon.h"
#include "wire/bus_names.h"

namespace gateway {

BusView viewBus() {
  BusView view;
  std::string why;
  if (!isBusThere()) return {.problem = "no bus daemon answers"};
  view.connection = openBus(kBusAddress, why);
  if (!view.connection) return {.problem = "the bus daemon refuses a connection: " + why};
  DBusConnection* daemon = view.connection.get();
  view.taken = askNames(daemon, "ListNames");
  view.startable = askNames(daemon, "ListActivatableNames");
  view.servicePid = askProcess(daemon, jobm::bus::kJobManager.name);
  // It is in its own list.
  const bool hasAnswered = view.has(DBUS_SERVICE_DBUS) && dbus_connection_get_is_connected(daemon);
  return hasAnswered ? std::move(view) : BusView{.problem = "the bus daemon has gone meanwhile"};
}

}  // namespace gateway
