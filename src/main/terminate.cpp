#include "main/terminate.h"

#include <execinfo.h>
#include <fcntl.h>
#include <gateway/log_macros.h>
#include <gateway/signal_context.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace jobm {
namespace {

constexpr int kMaxFrames = 64;
constexpr unsigned kMaxSeconds = 1;

// Also those whose default is harmless: a gateway service has no terminal and no reader to lose.
constexpr std::array kTrapped = {SIGTERM, SIGINT, SIGSEGV, SIGPIPE, SIGQUIT,
                                 SIGHUP,  SIGILL, SIGABRT, SIGTSTP};

using Text = std::array<char, 32768>;

// Where symbols are written to and read back from. Made before any handler is installed, since a
// process that has run out of descriptors is one whose back-trace is wanted; never closed.
std::array<int, 2> symbolPipe{-1, -1};

// backtrace_symbols allocates, which can hang when the interrupted thread was allocating. Its
// sibling writes to a descriptor without allocating: a pipe that takes all of it and is read back.
// False when there is no pipe.
bool symbolsOf(void* const* frames, int count, Text& text) {
  backtrace_symbols_fd(frames, count, symbolPipe[1]);
  std::size_t length = 0;
  while (length < text.size() - 1) {
    const ssize_t got = read(symbolPipe[0], text.data() + length, text.size() - 1 - length);
    if (got <= 0) break;
    length += static_cast<std::size_t>(got);
  }
  text[length] = '\0';
  return length > 0;
}

// The text of a symbol has a blank before its address, which only the allocating sibling writes.
void logSymbol(int i, const char* line) {
  const char* address = std::strrchr(line, '[');
  if (address == nullptr || address == line) {
    LOGE("  [%02d] %s\n", i, line);
    return;
  }
  LOGE("  [%02d] %.*s %s\n", i, static_cast<int>(address - line), line, address);
}

void logLines(Text& text, int count) {
  char* line = text.data();
  for (int i = 0; i < count && *line != '\0'; ++i) {
    char* end = std::strchr(line, '\n');
    if (end != nullptr) *end = '\0';
    logSymbol(i, line);
    if (end == nullptr) return;
    line = end + 1;
  }
}

void endProcess(int) { _exit(0); }

void setHandler(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(signal, &action, nullptr);
}

// Whatever goes wrong while the end is logged, even a lock inside a gateway's own logger, the
// process ends.
void limitTime(int signal) {
  setHandler(SIGALRM, endProcess);
  sigset_t unblocked;
  sigemptyset(&unblocked);
  sigaddset(&unblocked, SIGALRM);
  sigaddset(&unblocked, signal);  // a crash in the handler comes back to it
  pthread_sigmask(SIG_UNBLOCK, &unblocked, nullptr);
  alarm(kMaxSeconds);
}

}  // namespace

void installSignalHandlers() {
  // The first back-trace loads a library, which a signal handler must not.
  std::array<void*, 1> frame{};
  static_cast<void>(backtrace(frame.data(), 1));
  if (pipe2(symbolPipe.data(), O_CLOEXEC | O_NONBLOCK) != 0) symbolPipe = {-1, -1};
  for (const int signal : kTrapped) setHandler(signal, td_terminate);
}

void td_terminate(int signal) {
  static std::atomic_flag handling = ATOMIC_FLAG_INIT;
  if (handling.test_and_set()) _exit(0);
  const gateway::SignalContext inHandler;
  limitTime(signal);
  LOGI("Recv signal = %d. Terminating...\n", signal);
  if (signal == SIGSEGV) LOGE("Received segmentation fault.\n");
  if (signal == SIGTERM) {
    LOGI("User requested shutdown...\n");
  } else {
    dmp();
  }
  // Not exit: it would run the clean-up of libraries that other threads are in the middle of using.
  _exit(0);
}

void dmp() {
  int count = 0;
  // Always 0, before anything is counted: see "Log lines in another's name" in
  // docs/architecture.md.
  LOGE("backtrace() returned %d addresses\n", count);
  std::array<void*, kMaxFrames> frames{};
  count = backtrace(frames.data(), kMaxFrames);
  LOGE("backtrace() returned %d addresses\n", count);
  Text text;
  if (!symbolsOf(frames.data(), count, text)) {
    LOGE("backtrace_symbols");
    _exit(1);
  }
  logLines(text, count);
}

}  // namespace jobm
