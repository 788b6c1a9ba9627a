// The path of a record takes no lock, allocates nothing and asks for no time zone, so that it also
// works inside a signal handler: the fields are formatted into a buffer on the stack and written
// with one write(2). vsnprintf of this C library keeps to that for what the program logs (texts,
// integers, one plain double): it allocates only for positional arguments, wide characters and
// precisions beyond its own buffers, none of which occur.
//
// Where the journal reads standard error, libsystemd sends the record instead; never from inside a
// signal handler.

#include <gateway/log.h>
#include <gateway/log_context.h>
#include <gateway/output.h>
#include <gateway/signal_context.h>
#include <gateway/wall_clock.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "flood_guard.h"
#include "journal.h"
#include "log_line.h"

namespace {

using journal::Origin;
using log_line::Line;

constexpr int kWarning = 2;
constexpr int kError = 3;
constexpr int kDefaultLevel = 1;
constexpr int kUnread = -1;
constexpr std::size_t kFunctionBytes = 100;
constexpr std::size_t kIdBytes = 100;

std::atomic<bool> destroyed = false;
std::atomic<int> threshold = kUnread;

int readThreshold() {
  const char* text = std::getenv("GATEWAY_LOG_LEVEL");
  if (text == nullptr || *text == '\0') return kDefaultLevel;
  char* end = nullptr;
  const long level = std::strtol(text, &end, 10);
  return end == text ? kDefaultLevel : static_cast<int>(std::clamp(level, 0L, 6L));
}

int currentThreshold() {
  int level = threshold.load(std::memory_order_relaxed);
  if (level == kUnread) {
    level = readThreshold();
    threshold.store(level, std::memory_order_relaxed);
  }
  return level;
}

const char* levelWord(int level) {
  switch (level) {
    case 0:
      return "DEBUG";
    case 1:
      return "INFO";
    case 2:
      return "WARN";
    case 3:
      return "ERROR";
    case 5:
      return "REPORT";
    default:
      return "LEVEL?";
  }
}

char* putText(char* to, std::string_view text) { return std::copy(text.begin(), text.end(), to); }

// `value` with `digits` digits, and the character that follows it. By hand: for these few digits
// the library's formatter took half the time of a whole record.
template <typename Number>
char* putNumber(char* to, Number value, int digits, char next) {
  for (int i = digits - 1; i >= 0; --i, value /= 10) {
    to[i] = static_cast<char>('0' + value % 10);
  }
  to[digits] = next;
  return to + digits + 1;
}

char* putTime(char* to) {
  using std::chrono::floor;
  const auto now = floor<std::chrono::milliseconds>(gateway::wallClock());
  const auto day = floor<std::chrono::days>(now);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss time(now - day);
  to = putNumber(to, int{date.year()}, 4, '-');
  to = putNumber(to, unsigned{date.month()}, 2, '-');
  to = putNumber(to, unsigned{date.day()}, 2, 'T');
  to = putNumber(to, time.hours().count(), 2, ':');
  to = putNumber(to, time.minutes().count(), 2, ':');
  to = putNumber(to, time.seconds().count(), 2, '.');
  return putNumber(to, time.subseconds().count(), 3, 'Z');
}

// The ids of what the thread works on, "[jobId=17 deployId=d-17]", in a further line of a warning
// or an error: whoever looks for a text finds it and its line end as ever.
class Subjects {
 public:
  explicit Subjects(int level) {
    if (level != kWarning && level != kError) return;
    for (std::size_t i = 0; i < gateway::kLogSubjects; ++i) put(i);
    if (length > 0) text[length++] = ']';
  }
  std::string_view view() const { return {text.data(), length}; }

 private:
  void put(std::size_t i) {
    const char* id = gateway::logSubjects[i];
    if (id == nullptr) return;
    char* to = putText(text.data() + length, length == 0 ? "\n  | [" : " ");
    to = putText(to, gateway::kLogSubjectWords[i]);
    *to++ = '=';
    to += log_line::putShown({to, kIdBytes}, {id, strnlen(id, kIdBytes)});
    length = static_cast<std::size_t>(to - text.data());
  }

  std::array<char, gateway::kLogSubjects*(kIdBytes + 16)> text;  // only what is written is read
  std::size_t length = 0;
};

// The function, behind it the message, and `tail`. Returns the length of the line.
std::size_t putRecord(Line& line, char* to, const Origin& origin, std::string_view tail,
                      const char* format, va_list arguments) {
  const char* function = origin.function != nullptr ? origin.function : "(null)";
  to = putText(to, {function, strnlen(function, kFunctionBytes)});
  to = putText(to, ": ");
  const auto head = static_cast<std::size_t>(to - line.data());
  const std::size_t room = log_line::roomBehind(head, tail.size());
  const int wanted = std::vsnprintf(to, room + 1, format, arguments);
  const auto length = static_cast<std::size_t>(std::max(wanted, 0));
  return log_line::finish(line, head, head + std::min(length, room), length > room, tail);
}

void toStandardError(const Origin& origin, const char* format, va_list arguments) {
  Line line;  // only what is written is read
  char* to = putTime(line.data());
  *to++ = ' ';
  to = putText(to, levelWord(origin.level));
  *to++ = ' ';
  const Subjects subjects(origin.level);
  const std::size_t length = putRecord(line, to, origin, subjects.view(), format, arguments);
  gateway::writeGuarded(STDERR_FILENO, line.data(), length);
}

bool toJournal(const Origin& origin, const char* format, va_list arguments) {
  Line line;
  char* to = putText(line.data(), journal::kMessageField);
  const std::size_t length = putRecord(line, to, origin, {}, format, arguments);
  return journal::send(origin, line.data(), length - 1);  // an entry needs no line end
}

// Never inlined, so that a record below the threshold costs its thread no stack: the many threads
// that mostly wait would keep the pages of the lines for good.
[[gnu::noinline]] void write(const Origin& origin, const char* format, va_list arguments) {
  if (gateway::inSignalHandler == 0 && journal::isUsed()) {
    va_list again;
    va_copy(again, arguments);
    const bool sent = toJournal(origin, format, again);
    va_end(again);
    if (sent) return;
  }
  toStandardError(origin, format, arguments);
}

[[gnu::format(printf, 2, 3)]] void writeOwn(int line, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  write({kWarning, __FILE__, "log_print", line}, format, arguments);
  va_end(arguments);
}

void tellLeftOut() {
  const flood_guard::LeftOut left = flood_guard::toTell();
  if (left.records == 0) return;
  writeOwn(__LINE__, "%llu records were left out of this log, the last of them from %s line %d.\n",
           static_cast<unsigned long long>(left.records),
           left.path != nullptr ? left.path : "(null)", left.line);
}

}  // namespace

void log_init(const char* name, int /*target*/, int /*mode*/, int /*level*/) {
  journal::open(name);
}

void log_print(int level, const char* /*color*/, const char* /*tag*/, const char* path,
               const char* function, int line, const char* format, ...) {
  if (destroyed.load(std::memory_order_relaxed) || level < currentThreshold()) return;
  const int savedErrno = errno;
  if (flood_guard::admits(path, line)) {
    va_list arguments;
    va_start(arguments, format);
    write({level, path, function, line}, format, arguments);
    va_end(arguments);
  }
  tellLeftOut();
  errno = savedErrno;
}

void log_destroy(void) { destroyed = true; }
