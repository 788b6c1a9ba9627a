#pragma once

#include <functional>
#include <thread>

#include "bus.h"

namespace bench {

/// Reads a connection on a thread of its own, which sleeps while nothing comes.
class Reader {
 public:
  /// `handle` gets every message, on that thread, which then is the only one that may use the
  /// connection.
  Reader(Connection given, std::function<void(DBusMessage*)> handle);
  ~Reader();
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

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
