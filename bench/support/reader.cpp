#include "reader.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <utility>

namespace bench {

BusReader::BusReader(Connection given, std::function<void(DBusMessage*)> handle)
    : connection(std::move(given)), handler(std::move(handle)), stop(eventfd(0, EFD_CLOEXEC)) {
  thread = std::thread([this] { run(); });
}

BusReader::~BusReader() {
  eventfd_write(stop, 1);
  thread.join();
  close(stop);
}

void BusReader::run() {
  // What came while the connection was prepared lies in libdbus's queue already.
  do {
    while (DBusMessage* raw = dbus_connection_pop_message(bus())) {
      const Message message(raw);
      handler(raw);
    }
  } while (awaitTraffic() && dbus_connection_read_write(bus(), 0));
}

bool BusReader::awaitTraffic() const {
  int descriptor = -1;
  require(dbus_connection_get_unix_fd(bus(), &descriptor) != FALSE, "no descriptor");
  const bool isFull = dbus_connection_has_messages_to_send(bus());
  const auto events = static_cast<short>(isFull ? POLLIN | POLLOUT : POLLIN);
  pollfd watched[] = {{descriptor, events, 0}, {stop, POLLIN, 0}};
  poll(watched, std::size(watched), -1);
  return watched[1].revents == 0;
}

}  // namespace bench
