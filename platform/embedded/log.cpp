// The path of a record takes no lock, allocates nothing and asks for no time zone, so that it also
// works inside a signal handler: the fields are formatted into a buffer on the stack and written
// with one write(2). vsnprintf of this C library keeps to that for what the program logs (texts,
// integers, one plain double): it allocates only for positional arguments, wide characters and
// precisions beyond its own buffers, none of which occur.

#include <gateway/log.h>
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string_view>

namespace {

// What a pipe takes in one piece, so that records of several processes do not mix.
constexpr std::size_t kRecordBytes = PIPE_BUF;
constexpr std::string_view kCutMark = " [cut]";
constexpr int kDefaultLevel = 1;
constexpr int kUnread = -1;

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

struct UtcTime {
  int year, month, day, hour, minute, second, millisecond;
};

// The calendar from the days since 1970-01-01, counted in 400-year eras that begin with March, so
// that the leap day is the last of its year.
UtcTime utcNow() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  constexpr std::int64_t kDaySeconds = 86400;
  const std::int64_t seconds = now.tv_sec;
  const std::int64_t days = seconds / kDaySeconds;
  const auto ofDay = static_cast<int>(seconds % kDaySeconds);
  const std::int64_t shifted = days + 719468;
  const std::int64_t era = shifted / 146097;
  const std::int64_t ofEra = shifted % 146097;
  const std::int64_t yearOfEra = (ofEra - ofEra / 1460 + ofEra / 36524 - ofEra / 146096) / 365;
  const std::int64_t dayOfYear = ofEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  const std::int64_t monthFromMarch = (5 * dayOfYear + 2) / 153;
  const auto day = static_cast<int>(dayOfYear - (153 * monthFromMarch + 2) / 5 + 1);
  const auto month =
      static_cast<int>(monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9);
  const auto year = static_cast<int>(yearOfEra + era * 400 + (month <= 2 ? 1 : 0));
  return {year,
          month,
          day,
          ofDay / 3600,
          ofDay / 60 % 60,
          ofDay % 60,
          static_cast<int>(now.tv_nsec / 1000000)};
}

// How much of `length` bytes is left without a UTF-8 character that is only begun at the end.
std::size_t wholeCharacters(const char* text, std::size_t length) {
  std::size_t lead = length;
  for (int back = 0; back < 4 && lead > 0; ++back) {
    const auto byte = static_cast<unsigned char>(text[--lead]);
    if ((byte & 0xC0U) == 0x80U) continue;
    const std::size_t bytes = byte < 0xC0U ? 1 : byte < 0xE0U ? 2 : byte < 0xF0U ? 3 : 4;
    return lead + bytes > length ? lead : length;
  }
  return length;
}

using Record = std::array<char, kRecordBytes>;

constexpr std::size_t kFunctionBytes = 100;

char* putText(char* to, std::string_view text) { return std::copy(text.begin(), text.end(), to); }

// `value` with `digits` digits, and the character that follows it.
char* putNumber(char* to, int value, int digits, char next) {
  for (int i = digits - 1; i >= 0; --i, value /= 10) {
    to[i] = static_cast<char>('0' + value % 10);
  }
  to[digits] = next;
  return to + digits + 1;
}

// By hand: for these few digits the library's formatter took half the time of a whole record.
std::size_t writeHead(Record& record, int level, const char* function) {
  const UtcTime t = utcNow();
  char* to = record.data();
  to = putNumber(to, t.year, 4, '-');
  to = putNumber(to, t.month, 2, '-');
  to = putNumber(to, t.day, 2, 'T');
  to = putNumber(to, t.hour, 2, ':');
  to = putNumber(to, t.minute, 2, ':');
  to = putNumber(to, t.second, 2, '.');
  to = putNumber(to, t.millisecond, 3, 'Z');
  *to++ = ' ';
  to = putText(to, levelWord(level));
  *to++ = ' ';
  if (function == nullptr) function = "(null)";
  to = putText(to, {function, strnlen(function, kFunctionBytes)});
  to = putText(to, ": ");
  return static_cast<std::size_t>(to - record.data());
}

// Appends the message to the head and returns the length of both; one byte is left for the line
// end.
std::size_t writeMessage(Record& record, std::size_t head, const char* format, va_list arguments) {
  const std::size_t room = record.size() - head - kCutMark.size() - 1;
  const int wanted = std::vsnprintf(record.data() + head, room, format, arguments);
  if (wanted < 0) return head;
  if (static_cast<std::size_t>(wanted) < room) return head + static_cast<std::size_t>(wanted);
  const std::size_t length = head + wholeCharacters(record.data() + head, room - 1);
  std::memcpy(record.data() + length, kCutMark.data(), kCutMark.size());
  return length + kCutMark.size();
}

// SIGPIPE ends this program, but nobody reading its log any more is no reason to. Held back for
// this thread and taken away again, which a signal handler may do too; one that the caller itself
// was holding back stays.
void writeRecord(const char* record, std::size_t length) {
  sigset_t pipe;
  sigset_t before;
  sigset_t pending;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  pthread_sigmask(SIG_BLOCK, &pipe, &before);
  const bool keep = sigismember(&before, SIGPIPE) == 1 && sigpending(&pending) == 0 &&
                    sigismember(&pending, SIGPIPE) == 1;
  ssize_t written = 0;
  do {
    written = write(STDERR_FILENO, record, length);
  } while (written < 0 && errno == EINTR);
  if (written < 0 && errno == EPIPE && !keep) {
    const timespec atOnce{};
    sigtimedwait(&pipe, nullptr, &atOnce);
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

}  // namespace

void log_init(const char* /*name*/, int /*target*/, int /*mode*/, int /*level*/) {}

void log_print(int level, const char* /*color*/, const char* /*tag*/, const char* /*path*/,
               const char* function, int /*line*/, const char* format, ...) {
  if (destroyed.load(std::memory_order_relaxed) || level < currentThreshold()) return;
  const int savedErrno = errno;
  Record record;  // only what is written is read
  const std::size_t head = writeHead(record, level, function);
  va_list arguments;
  va_start(arguments, format);
  std::size_t length = writeMessage(record, head, format, arguments);
  va_end(arguments);
  if (record[length - 1] != '\n') record[length++] = '\n';
  writeRecord(record.data(), length);
  errno = savedErrno;
}

void log_destroy(void) { destroyed = true; }
