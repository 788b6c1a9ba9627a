/// Makes connections look to their owners as if the bus daemon had gone.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

namespace test {

/// The descriptor that the next open will get.
inline int nextDescriptor() {
  const int next = dup(STDERR_FILENO);
  close(next);
  return next;
}

/// Breaks the connections that were opened since `first` was the next descriptor, others than
/// sockets being left alone.
inline void cutConnectionsFrom(int first) {
  for (int descriptor = first; descriptor < first + 16; ++descriptor) {
    shutdown(descriptor, SHUT_RDWR);
  }
}

}  // namespace test
