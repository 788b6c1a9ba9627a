#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

namespace quillon {

/// What one thread waits for in poll(2) and any thread signals. Signals add up until they are
/// cleared.
class EventDescriptor {
 public:
  EventDescriptor() : descriptor(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}
  ~EventDescriptor() {
    if (isOpen()) close(descriptor);
  }
  EventDescriptor(const EventDescriptor&) = delete;
  EventDescriptor& operator=(const EventDescriptor&) = delete;

  /// False when the process has no descriptor left.
  bool isOpen() const { return descriptor >= 0; }
  int get() const { return descriptor; }

  /// Makes the descriptor readable. Never blocks; any thread.
  void signal() const { eventfd_write(descriptor, 1); }

  /// Makes it unreadable again.
  void clear() const {
    eventfd_t signals = 0;
    eventfd_read(descriptor, &signals);
  }

 private:
  const int descriptor;
};

}  // namespace quillon
