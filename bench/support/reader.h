#pragma once

#include <functional>
#include <thread>

#include "bus.h"

namespace bench {

/// Reads a connection on a thread of its own, which sleeps while nothing comes.
class BusReader {
 public:
  /// `handle` gets every message, on that thread, which then is the only one that may use the
  /// connection.
  BusReader(Connection given, std::function<void(DBusMessage*)> handle);
  ~BusReader();
  BusReader(const BusReader&) = delete;
  BusReader& operator=(const BusReader&) = delete;

  DBusConnection* bus() const { return connection.get(); }

 private:
  void run();
  bool awaitTraffic() const;

  const Connection connection;
  const std::function<void(DBusMessage*)> handler;
  const int stop;  // an event descriptor
  std::thread thread;
};

}  // namespace bench
