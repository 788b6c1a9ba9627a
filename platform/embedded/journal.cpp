#include "journal.h"

#include <gateway/log_context.h>

// Otherwise every entry would say that it comes from this file.
#define SD_JOURNAL_SUPPRESS_LOCATION
#include <sys/stat.h>
#include <sys/uio.h>
#include <syslog.h>
#include <systemd/sd-journal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace journal {
namespace {

constexpr const char* kSocket = "/run/systemd/journal/socket";
constexpr int kUnknown = -1;

std::atomic<int> used{kUnknown};
std::atomic<const char*> program{nullptr};

// The variable names a stream by device and inode. Whatever this process was started from may have
// left its own there, so it counts only if standard error is that very stream.
bool isJournalStream() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  struct stat info {};
  if (stream == nullptr || fstat(STDERR_FILENO, &info) != 0) return false;
  char* end = nullptr;
  if (std::strtoull(stream, &end, 10) != info.st_dev || *end != ':') return false;
  return std::strtoull(end + 1, &end, 10) == info.st_ino && *end == '\0';
}

int priorityOf(int level) {
  constexpr std::array kPriorities = {LOG_DEBUG, LOG_INFO, LOG_WARNING,
                                      LOG_ERR,   LOG_INFO, LOG_NOTICE};
  return kPriorities[static_cast<std::size_t>(std::clamp(level, 0, 5))];
}

// One field of an entry, "NAME=value", cut where it gets too long.
struct Field {
  std::array<char, 160> text;
  std::size_t length = 0;

  iovec view() { return {text.data(), length}; }
  void set(const char* name, const char* value) {
    const int wanted = std::snprintf(text.data(), text.size(), "%s=%s", name, value);
    length = std::min(static_cast<std::size_t>(std::max(wanted, 0)), text.size() - 1);
  }
  void set(const char* name, int value) {
    std::array<char, 16> number;
    std::snprintf(number.data(), number.size(), "%d", value);
    set(name, number.data());
  }
};

// A message and the fields that are added to it.
class Entry {
 public:
  Entry(const char* message, std::size_t length) {
    views[0] = {const_cast<char*>(message), length};  // the library only reads it
  }

  template <typename Value>
  void add(const char* name, Value value) {
    fields[count].set(name, value);
    views[count + 1] = fields[count].view();
    ++count;
  }

  bool send() { return sd_journal_sendv(views.data(), static_cast<int>(count) + 1) == 0; }

 private:
  static constexpr std::size_t kMaxFields = 5 + gateway::kLogSubjects;

  std::array<Field, kMaxFields> fields;  // only what is added is read
  std::array<iovec, kMaxFields + 1> views;
  std::size_t count = 0;
};

const char* textOf(const char* text) { return text != nullptr ? text : "(null)"; }

}  // namespace

bool isUsed() {
  int answer = used.load(std::memory_order_relaxed);
  if (answer == kUnknown) {
    // Without its socket the library drops entries and says that it sent them.
    answer = isJournalStream() && access(kSocket, W_OK) == 0 ? 1 : 0;
    used.store(answer, std::memory_order_relaxed);
  }
  return answer == 1;
}

void open(const char* identifier) {
  program = identifier;
  used = kUnknown;
}

bool send(const Origin& origin, const char* message, std::size_t length) {
  Entry entry(message, length);
  entry.add("PRIORITY", priorityOf(origin.level));
  entry.add("CODE_FILE", textOf(origin.path));
  entry.add("CODE_LINE", origin.line);
  entry.add("CODE_FUNC", textOf(origin.function));
  const char* name = program.load(std::memory_order_relaxed);
  if (name != nullptr) entry.add("SYSLOG_IDENTIFIER", name);
  for (std::size_t i = 0; i < gateway::kLogSubjects; ++i) {
    const char* id = gateway::logSubjects[i];
    if (id != nullptr) entry.add(gateway::kLogSubjectFields[i], id);
  }
  return entry.send();
}

}  // namespace journal
