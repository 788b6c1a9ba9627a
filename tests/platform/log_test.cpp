// The lambdas that log here have no names of their own.
#define LOG_FUNCTION "f"
#include <CapturedLog.h>
#include <gateway/log_macros.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

namespace {

using test::CapturedLog;

/// Runs `body` in a process of its own and returns how that ended.
int statusOf(const std::function<void()>& body) {
  const pid_t child = fork();
  if (child == 0) {
    body();
    _exit(0);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status;
}

TEST(Log, WritesLevelFunctionAndMessageOnOneRecordWithOneLineEnd) {
  struct Case {
    int level;
    const char *format, *expected;
  };
  const Case cases[] = {
      {0, "a debug text %d", ""},
      {1, "no line end %d", " INFO f: no line end 7\n"},
      {3, "two\nlines %d\n", " ERROR f: two\nlines 7\n"},
      {5, "%d", " REPORT f: 7\n"},
  };
  for (const Case& c : cases) {
    const CapturedLog log;
    log_print(c.level, "color", "tag", "path", "f", 1, c.format, 7);
    const std::string record = log.text();
    EXPECT_EQ(record.substr(std::min(record.find(' '), record.size())), c.expected);
  }
}

TEST(Log, TellsTheTimeInUtcWhateverTheTimeZoneIs) {
  setenv("TZ", "Asia/Tokyo", 1);
  tzset();
  const CapturedLog log;
  LOGI("now");
  const std::time_t now = std::time(nullptr);
  unsetenv("TZ");
  tzset();
  std::tm time{};
  const std::string record = log.text();
  const char* rest = strptime(record.c_str(), "%Y-%m-%dT%H:%M:%S.", &time);
  ASSERT_NE(rest, nullptr) << record;
  EXPECT_EQ(std::string_view(rest).substr(3, 7), "Z INFO ") << record;
  EXPECT_NEAR(static_cast<double>(timegm(&time)), static_cast<double>(now), 60);
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
    const std::size_t begin = record.find("xé");
    const std::string kept = record.substr(begin, record.size() - mark.size() - begin);
    EXPECT_TRUE(characters.starts_with(kept));
    EXPECT_NE(static_cast<unsigned char>(characters[kept.size()]) & 0xC0U, 0x80U) << "split";
  }
}

constexpr int kSignals = 500;
std::atomic<int> handled{0};

TEST(Log, WorksInAHandlerThatInterruptsAllocationAndLeavesErrnoAlone) {
  const CapturedLog log;
  struct sigaction action {};
  action.sa_handler = [](int) {
    LOGI("handled %d %s %f", 1, "text", 0.5);
    ++handled;
  };
  sigaction(SIGUSR1, &action, nullptr);
  std::atomic<bool> sure{true};
  const pthread_t interrupted = pthread_self();
  std::thread interrupting([&] {
    for (int sent = 0; sent < kSignals; ++sent) {
      pthread_kill(interrupted, SIGUSR1);
      while (handled <= sent) std::this_thread::yield();
    }
  });
  while (handled < kSignals) {
    errno = ERANGE;
    void* block = std::malloc(1 + static_cast<std::size_t>(handled));
    if (errno != ERANGE) sure = false;
    std::free(block);
  }
  interrupting.join();
  signal(SIGUSR1, SIG_DFL);
  EXPECT_TRUE(sure);
  EXPECT_EQ(log.count(": handled 1 text 0.500000\n"), std::size_t{kSignals});
}

TEST(Log, SurvivesAReaderThatIsGoneAndLeavesTheCallersOwnSignalPending) {
  const int status = statusOf([] {
    int ends[2];
    if (pipe(ends) != 0) _exit(1);
    close(ends[0]);
    dup2(ends[1], STDERR_FILENO);
    LOGI("to nobody");
    sigset_t pipeSignal;
    sigset_t pending;
    sigemptyset(&pipeSignal);
    sigaddset(&pipeSignal, SIGPIPE);
    sigprocmask(SIG_BLOCK, &pipeSignal, nullptr);
    LOGI("to nobody");
    if (sigpending(&pending) != 0 || sigismember(&pending, SIGPIPE) != 0) _exit(2);
    raise(SIGPIPE);
    LOGI("to nobody");
    if (sigpending(&pending) != 0 || sigismember(&pending, SIGPIPE) != 1) _exit(3);
  });
  EXPECT_EQ(status, 0);
}

}  // namespace
