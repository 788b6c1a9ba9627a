// The lambdas that log here have no names of their own.
#define LOG_FUNCTION "f"
#include <CapturedLog.h>
#include <gateway/log_macros.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <string>
#include <string_view>
#include <thread>

namespace {

using test::CapturedLog;

TEST(Log, WritesTheTimeInUtcLevelFunctionAndMessageWithOneLineEnd) {
  struct Case {
    int level;
    const char *format, *expected;
  };
  const Case cases[] = {
      {0, "a debug text %d", ""},
      {1, "no line end %d", "Z INFO f: no line end 7\n"},
      {3, "two\nlines %d\n", "Z ERROR f: two\nlines 7\n"},
      {5, "%d", "Z REPORT f: 7\n"},
  };
  setenv("TZ", "Asia/Tokyo", 1);
  tzset();
  for (const Case& c : cases) {
    const CapturedLog log;
    log_print(c.level, "color", "tag", "path", "f", 1, c.format, 7);
    const std::string record = log.text();
    if (*c.expected == '\0' && record.empty()) continue;
    std::tm time{};
    const char* milliseconds = strptime(record.c_str(), "%Y-%m-%dT%H:%M:%S.", &time);
    ASSERT_NE(milliseconds, nullptr) << record;
    EXPECT_EQ(std::string(milliseconds).substr(3), c.expected);
    EXPECT_NEAR(static_cast<double>(timegm(&time)), static_cast<double>(std::time(nullptr)), 60);
  }
  unsetenv("TZ");
  tzset();
}

TEST(Log, CutsALongRecordBetweenTwoCharactersAndMarksIt) {
  const std::string_view mark = " [cut]\n";
  std::string characters;
  while (characters.size() < std::size_t{2} * PIPE_BUF) characters += "xéの𝄞";
  for (std::size_t shift = 0; shift < 10; ++shift) {
    const CapturedLog log;
    LOGI("%s", (std::string(shift, '-') + characters).c_str());
    const std::string record = log.text();
    ASSERT_TRUE(record.ends_with(mark));
    EXPECT_LE(record.size(), std::size_t{PIPE_BUF});
    EXPECT_GT(record.size(), std::size_t{PIPE_BUF} - 5) << "more is lost than one character";
    const std::size_t kept = record.size() - mark.size() - record.find("xé");
    EXPECT_NE(static_cast<unsigned char>(characters[kept]) & 0xC0U, 0x80U) << "split";
  }
}

constexpr int kSignals = 500;
std::atomic<int> handled{0};

TEST(Log, WorksInAHandlerThatInterruptsAllocation) {
  const CapturedLog log;
  struct sigaction action {};
  action.sa_handler = [](int) {
    LOGI("handled %d %s %f", 1, "text", 0.5);
    ++handled;
  };
  sigaction(SIGUSR1, &action, nullptr);
  std::thread interrupting([interrupted = pthread_self()] {
    for (int sent = 0; sent < kSignals; ++sent) {
      pthread_kill(interrupted, SIGUSR1);
      while (handled <= sent) std::this_thread::yield();
    }
  });
  while (handled < kSignals) {
    // Volatile, for the compiler leaves out what nobody looks at.
    void* volatile block = std::malloc(1 + static_cast<std::size_t>(handled));
    std::free(block);
  }
  interrupting.join();
  signal(SIGUSR1, SIG_DFL);
  EXPECT_EQ(log.count(": handled 1 text 0.500000\n"), std::size_t{kSignals});
}

void logToNobody() {
  int ends[2];
  if (pipe(ends) != 0) _exit(1);
  close(ends[0]);
  dup2(ends[1], STDERR_FILENO);
  errno = ERANGE;
  LOGI("to nobody");
  _exit(errno == ERANGE ? 0 : 2);
}

TEST(LogDeathTest, SurvivesAReaderThatIsGoneAndLeavesErrnoAlone) {
  EXPECT_EXIT(logToNobody(), testing::ExitedWithCode(0), "");
}

}  // namespace
