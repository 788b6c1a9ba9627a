/// Lets a signal handler say where it is, for what works otherwise there. Works beside any
/// gateway's libraries.
#pragma once

#include <csignal>

namespace gateway {

/// Not 0 while the calling thread is inside a signal handler that said so.
inline constinit thread_local volatile std::sig_atomic_t inSignalHandler = 0;

/// Says so while it lives. The first thing in a handler that logs.
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
