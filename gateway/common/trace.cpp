#include "trace.h"

#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "options.h"

namespace gateway {
namespace {

constexpr std::size_t kLongestText = 300;

double secondsNow() {
  const auto now = std::chrono::system_clock::now().time_since_epoch();
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
  char head[96];
  const double elapsed = secondsNow() - startSeconds();
  const int length =
      std::snprintf(head, sizeof head, "%9.3f  %-17s -> %-17s  ", elapsed,
                    std::string(from.substr(0, 30)).c_str(), std::string(to.substr(0, 30)).c_str());
  std::string line(head, static_cast<std::size_t>(length));
  for (const char c : what.substr(0, kLongestText)) line += c == '\n' ? ' ' : c;
  if (what.size() > kLongestText) line += " ...";
  line += '\n';
  // One write, because lines of several programs meet in one file. A trace that is not written (a
  // full disk, a closed terminal) stops nobody.
  if (write(traceDescriptor(), line.data(), line.size()) < 0) return;
}

void fault(std::string_view from, std::string_view to, std::string_view what) {
  trace(from, to, "FAULT " + std::string(what));
}

}  // namespace gateway
