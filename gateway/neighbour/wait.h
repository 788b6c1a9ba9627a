/// Lets the one thread that reads a bus connection sleep until there is something for it: from the
/// bus, from another thread or from the clock.
#pragma once

#include <dbus/dbus.h>

#include <optional>

namespace gateway {

class BusWait {
 public:
  /// Waits for `connection`, which must outlive it. Ends the program without a descriptor.
  explicit BusWait(DBusConnection* connection);
  ~BusWait();
  BusWait(const BusWait&) = delete;
  BusWait& operator=(const BusWait&) = delete;

  /// Waits for at most `milliseconds` (for ever without), then reads and writes what can be. The
  /// caller must have popped what was read before. Returns false when the connection is lost. One
  /// thread.
  bool readWrite(std::optional<int> milliseconds = {});

  /// Ends the wait that goes on, or the next one. Any thread.
  void wake() const;

  /// Sends `message`. Any thread.
  void send(DBusMessage* message) const;

 private:
  void sleep(int milliseconds) const;

  DBusConnection* const connection;
  const int wakeUp;  // an event descriptor
};

}  // namespace gateway
