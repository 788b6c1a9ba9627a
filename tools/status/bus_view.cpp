#include "bus_view.h"

#include "neighbour/daemon.h"
#include "wire/bus_names.h"

namespace gateway {

BusView viewBus() {
  BusView view;
  if (!isBusThere()) return view;
  view.connection = connectBus();
  DBusConnection* daemon = view.connection.get();
  view.taken = askNames(daemon, "ListNames");
  view.startable = askNames(daemon, "ListActivatableNames");
  view.servicePid = askProcess(daemon, jobm::bus::kJobManager.name);
  return view;
}

}  // namespace gateway
