// The lambdas that log here have no names of their own.
#define LOG_FUNCTION "f"
#include <fcntl.h>
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

#include "support/CapturedLog.h"

namespace {

using test::CapturedLog;

TEST(Log, writes_the_time_in_utc_level_function_and_message_with_one_line_end) {
  setenv("TZ", "Asia/Tokyo", 1);
  tzset();
  const CapturedLog log;
  log_print(0, "color", "tag", "path", "f", 1, "a debug text");
  LOGE("two\nlines %d\n", 7);
  LOGR("no line end");
  const std::string records = log.text();
  std::tm time{};
  const char* milliseconds = strptime(records.c_str(), "%Y-%m-%dT%H:%M:%S.", &time);
  ASSERT_NE(milliseconds, nullptr) << records;
  EXPECT_NEAR(static_cast<double>(timegm(&time)), static_cast<double>(std::time(nullptr)), 60);
  EXPECT_TRUE(std::string_view(milliseconds + 3).starts_with("Z ERROR f: two\nlines 7\n2"));
  EXPECT_TRUE(records.ends_with("Z REPORT f: no line end\n"));
}

TEST(Log, cuts_a_long_record_between_two_characters_and_marks_it) {
  std::string characters;
  while (characters.size() < std::size_t{2} * PIPE_BUF) characters += "xéの𝄞";
  for (std::size_t shift = 0; shift < 10; ++shift) {
    const CapturedLog log;
    LOGI("%s", (std::string(shift, '-') + characters).c_str());
    const std::string record = log.text();
    const std::size_t end = record.rfind(" [cut]\n");
    EXPECT_LE(record.size(), std::size_t{PIPE_BUF});
    EXPECT_GT(record.size(), std::size_t{PIPE_BUF} - 5) << "more is lost than one character";
    const std::size_t kept = end - record.find("xé");
    EXPECT_NE(static_cast<unsigned char>(characters.at(kept)) & 0xC0U, 0x80U) << "split";
  }
}

std::atomic<int> handled{0};

TEST(Log, works_in_a_handler_that_interrupts_allocation) {
  const CapturedLog log;
  signal(SIGUSR1, [](int) {
    LOGI("handled %d %s %f", 1, "text", 0.5);
    ++handled;
  });
  const std::jthread interrupting([interrupted = pthread_self()] {
    for (int sent = 0; sent < 500; ++sent) {
      pthread_kill(interrupted, SIGUSR1);
      while (handled <= sent) std::this_thread::yield();
    }
  });
  while (handled < 500) {
    // Of a size for which malloc takes its lock. Volatile, for the compiler leaves out what nobody
    // looks at.
    void* volatile block = std::malloc(5000);
    std::free(block);
  }
  EXPECT_EQ(log.count(": handled 1 text 0.500000\n"), 500U);
}

TEST(Log, survives_a_reader_that_is_gone_and_leaves_errno_alone) {
  const CapturedLog putsStandardErrorBack;
  int ends[2];
  ASSERT_EQ(pipe2(ends, O_CLOEXEC), 0);
  close(ends[0]);
  dup2(ends[1], STDERR_FILENO);
  close(ends[1]);
  errno = ERANGE;
  LOGI("to nobody");
  EXPECT_EQ(errno, ERANGE);
}

}  // namespace
