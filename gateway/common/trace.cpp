#include "trace.h"

#include <fcntl.h>
#include <gateway/wall_clock.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "options.h"
#include "trace_line.h"

namespace gateway {
namespace {

double secondsNow() {
  const auto now = wallClock().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

double startSeconds() {
  static const double start = [] {
    const std::string given = environment("GATEWAY_TRACE_START");
    const double value = std::strtod(given.c_str(), nullptr);
    return value > 0 ? value : secondsNow();
  }();
  return start;
}

int traceDescriptor() {
  static const int descriptor = [] {
    const std::string path = environment("GATEWAY_TRACE");
    const int opened =
        path.empty() ? -1 : open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
    return opened >= 0 ? opened : STDOUT_FILENO;
  }();
  return descriptor;
}

}  // namespace

void trace(std::string_view from, std::string_view to, std::string_view what) {
  char elapsed[32];
  std::snprintf(elapsed, sizeof elapsed, "%.3f", secondsNow() - startSeconds());
  const std::string line = traceLine(elapsed, from, to, what);
  // One write, because lines of several programs meet in one file. A trace that is not written (a
  // full disk, a closed terminal) stops nobody.
  if (write(traceDescriptor(), line.data(), line.size()) < 0) return;
}

void fault(std::string_view from, std::string_view to, std::string_view what) {
  trace(from, to, "FAULT " + std::string(what));
}

}  // namespace gateway
