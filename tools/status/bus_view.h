/// What the bus daemon says of the services: which names are taken, which it would start itself.
#pragma once

#include <optional>
#include <set>
#include <string>

#include "neighbour/bus.h"

namespace gateway {

struct BusView {
  std::string problem;      // why nothing can be asked; empty: all that follows was
  Connection connection{};  // none then
  std::set<std::string> taken{};
  std::set<std::string> startable{};
  std::optional<unsigned> servicePid{};  // of the owner of the service's name

  bool isThere() const { return problem.empty(); }
  bool has(const std::string& name) const { return taken.contains(name); }
};

/// Connects to the daemon and asks it.
BusView viewBus();

}  // namespace gateway
