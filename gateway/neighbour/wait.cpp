// The glue: the thread sleeps in poll(2) and holds nothing of libdbus meanwhile, so a send of
// another thread is written at once. What such a send could not write, because the socket was full
// or the thread was just reading, is left to the thread, which is woken for it.

#include "wait.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include "bus.h"

namespace gateway {

BusWait::BusWait(DBusConnection* given)
    : connection(given), wakeUp(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  require(wakeUp >= 0, "no event descriptor");
}

BusWait::~BusWait() { close(wakeUp); }

bool BusWait::readWrite(std::optional<int> milliseconds) {
  // A blocking call may have read more than its reply; no descriptor tells of that.
  const bool hasRead =
      dbus_connection_get_dispatch_status(connection) == DBUS_DISPATCH_DATA_REMAINS;
  if (!hasRead) sleep(milliseconds.value_or(-1));
  return dbus_connection_read_write(connection, 0) != 0;
}

void BusWait::wake() const { eventfd_write(wakeUp, 1); }

void BusWait::send(DBusMessage* message) const {
  dbus_connection_send(connection, message, nullptr);
  if (dbus_connection_has_messages_to_send(connection)) wake();
}

void BusWait::sleep(int milliseconds) const {
  int socket = -1;
  if (!dbus_connection_get_is_connected(connection) ||
      !dbus_connection_get_socket(connection, &socket)) {
    return;
  }
  const bool isFull = dbus_connection_has_messages_to_send(connection) != 0;
  pollfd descriptors[] = {{socket, static_cast<short>(isFull ? POLLIN | POLLOUT : POLLIN), 0},
                          {wakeUp, POLLIN, 0}};
  poll(descriptors, 2, milliseconds);
  eventfd_t count = 0;
  if (descriptors[1].revents != 0) eventfd_read(wakeUp, &count);
}

}  // namespace gateway
