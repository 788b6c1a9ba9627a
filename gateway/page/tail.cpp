#include "tail.h"

#include <unistd.h>

#include <chrono>
#include <utility>

namespace gateway {
namespace {

constexpr double kPause = 1;  // seconds

double secondsNow() {
  const auto now = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double>(now).count();
}

// Returns false at the end.
bool readSome(int descriptor, std::string& text) {
  char buffer[65536];
  const ssize_t count = read(descriptor, buffer, sizeof buffer);
  if (count > 0) text.append(buffer, static_cast<std::size_t>(count));
  return count > 0;
}

}  // namespace

std::vector<std::string> takeLines(std::string& text) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  for (std::size_t end = 0; (end = text.find('\n', begin)) != std::string::npos; begin = end + 1) {
    lines.push_back(text.substr(begin, end - begin));
  }
  text.erase(0, begin);
  return lines;
}

Tail::Tail(std::string given) : path(std::move(given)) {}

std::vector<std::string> Tail::lines() {
  if (!in.is_open()) in.open(path);
  in.clear();
  char buffer[65536];
  while (in.read(buffer, sizeof buffer) || in.gcount() > 0) {
    begun.append(buffer, static_cast<std::size_t>(in.gcount()));
  }
  return takeLines(begun);
}

LineSource::LineSource(std::vector<std::string> given)
    : command(std::move(given)), endedAt(secondsNow() - kPause) {}

int LineSource::descriptor() const { return child ? child->outputDescriptor() : -1; }

std::vector<std::string> LineSource::lines() {
  if (!child) {
    if (secondsNow() - endedAt < kPause) return {};
    child = std::make_unique<Child>(command, "/dev/null", true);
    return {};
  }
  if (!readSome(child->outputDescriptor(), begun)) {
    child.reset();
    begun.clear();
    endedAt = secondsNow();
  }
  return takeLines(begun);
}

int runProgram(const std::vector<std::string>& command, std::string& output) {
  Child child(command, "/dev/null", true);
  while (readSome(child.outputDescriptor(), output)) {
  }
  return child.wait();
}

}  // namespace gateway
