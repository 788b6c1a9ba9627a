/// Lets code find out that it was called by a signal handler, where few functions are safe. For any
/// platform library.
#pragma once

#include <csignal>

namespace gateway {

/// Not 0 while the calling thread is inside a signal handler that has a SignalContext.
inline constinit thread_local volatile std::sig_atomic_t inSignalHandler = 0;

/// Marks the calling thread while it lives. The first thing in a signal handler that logs.
class SignalContext {
 public:
  SignalContext() : before(inSignalHandler) { inSignalHandler = 1; }
  ~SignalContext() { inSignalHandler = before; }
  SignalContext(const SignalContext&) = delete;
  SignalContext& operator=(const SignalContext&) = delete;

 private:
  const std::sig_atomic_t before;
};

}  // namespace gateway
