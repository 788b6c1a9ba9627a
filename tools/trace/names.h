/// Who is who on the bus: which connections are the service's, and what the others are called. A
/// monitor may ask nothing, so this has a connection of its own for that. One thread.
#pragma once

#include <map>
#include <string>

#include "neighbour/bus.h"
#include "record.h"

namespace gateway {

class Names {
 public:
  /// Asks over `asker` what there is at present.
  explicit Names(Connection asker);

  /// An end of a message by its address there, a unique or a well-known name.
  End end(const std::string& address);

  /// Whether `address` is one of the service's connections: of the process that owns its name. Its
  /// calls come over connections that have no name.
  bool isService(const std::string& address);

  /// Whether `address` is that of the connection that asks.
  bool isOwn(const std::string& address) const;

  /// Takes note of what a message tells: owners that change, services that register.
  void learn(DBusMessage* message);

 private:
  std::string nameOf(const std::string& address);
  unsigned processOf(const std::string& address);
  void takeOwner(const std::string& name, const std::string& owner);
  void takeRegistration(const std::string& text);

  Connection connection;
  std::map<std::string, std::string> owners;     // well-known name -> unique name
  std::map<std::string, unsigned> processes;     // unique name -> process id, 0 when not told
  std::map<std::string, std::string> executors;  // well-known name -> executor name
};

}  // namespace gateway
