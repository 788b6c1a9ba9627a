/// Writing where the reader may be gone: SIGPIPE ends this program, a closed pipe of its output
/// must not. For any platform library. Any thread, also inside a signal handler.
#pragma once

#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <ctime>

namespace gateway {

/// One write(2), begun again when a signal interrupts it. What can't be written is lost.
inline void writeGuarded(int descriptor, const char* text, std::size_t length) {
  // Blocks SIGPIPE during the write, then consumes the one it raised. One that was pending before
  // stays the caller's.
  sigset_t pipe;
  sigset_t before;
  sigset_t pending;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, &before);
  const bool wasPending = sigismember(&before, SIGPIPE) == 1 && sigpending(&pending) == 0 &&
                          sigismember(&pending, SIGPIPE) == 1;
  ssize_t written = 0;
  do {
    written = write(descriptor, text, length);
  } while (written < 0 && errno == EINTR);
  if (written < 0 && errno == EPIPE && !wasPending) {
    const timespec atOnce{};
    sigtimedwait(&pipe, nullptr, &atOnce);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

/// printf to standard output, unbuffered, since this process may end by _exit at any time. A text
/// of 1,024 bytes or more is cut.
[[gnu::format(printf, 1, 2)]] inline void printGuarded(const char* format, ...) {
  std::array<char, 1024> text;
  va_list arguments;
  va_start(arguments, format);
  const int wanted = std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  if (wanted <= 0) return;
  writeGuarded(STDOUT_FILENO, text.data(),
               std::min(static_cast<std::size_t>(wanted), text.size() - 1));
}

}  // namespace gateway
