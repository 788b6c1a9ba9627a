/// The time of day, beyond 2038 on machines of 32 bits, too: the C++ library's own clock is
/// compiled into that library, there with times of 32 bits. For any platform library.
#pragma once

#include <chrono>
#include <ctime>

namespace gateway {

/// Since the beginning of 1970, in UTC. Any thread, also inside a signal handler.
inline std::chrono::sys_time<std::chrono::nanoseconds> wallClock() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return std::chrono::sys_time<std::chrono::nanoseconds>(std::chrono::seconds(now.tv_sec) +
                                                         std::chrono::nanoseconds(now.tv_nsec));
}

}  // namespace gateway
