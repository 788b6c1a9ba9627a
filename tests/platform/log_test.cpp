// The lambdas that log here have no names of their own.
#define LOG_FUNCTION "f"
#include <dbus/dbus.h>
#include <gateway/log_context.h>
#include <gateway/log_macros.h>
#include <pthread.h>

#include <climits>
#include <ctime>

#include "support/test.h"

using namespace test;

namespace {

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
  EXPECT_TRUE(std::string_view(milliseconds + 3).starts_with("Z ERROR f: two\n  | lines 7\n2"));
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

TEST(Log, shows_what_it_is_told_without_letting_it_pass_for_another_record) {
  const std::pair<std::string, std::string> cases[] = {
      {"plain ~ text ", "plain ~ text "},
      {"é の 𝄞 \xC2\xA0 \xED\x9F\xBF \xEE\x80\x80 \xF4\x8F\xBF\xBF",
       "é の 𝄞 \xC2\xA0 \xED\x9F\xBF \xEE\x80\x80 \xF4\x8F\xBF\xBF"},
      {"x\n2026-01-01T00:00:00.000Z ERROR f: forged",
       "x\n  | 2026-01-01T00:00:00.000Z ERROR f: forged"},
      {"{\n   \"a\" : 1\n}\n\n ", "{\n  |    \"a\" : 1\n  | }"},
      {"\n\n", ""},
      {"\nx", "\n  | x"},
      {"a\x1b[2J\rb\tc\x7f", "a\\x1b[2J\\x0db\\x09c\\x7f"},
      {"a line end as others have it\xC2\x85x", "a line end as others have it\\xc2\\x85x"},
      {"caf\xE9, \xC0\x8A \xE0\x80\x8A \xED\xA0\x80 \xF4\x90\x80\x80 \xE2\x82",
       "caf\\xe9, \\xc0\\x8a \\xe0\\x80\\x8a \\xed\\xa0\\x80 \\xf4\\x90\\x80\\x80 \\xe2\\x82"},
  };
  for (const auto& [message, shown] : cases) {
    const CapturedLog log;
    LOGI("%s", message.c_str());
    EXPECT_TRUE(log.text().ends_with("Z INFO f: " + shown + "\n")) << log.text();
  }
}

TEST(Log, sends_no_control_character_and_no_line_of_unknown_kind_whatever_bytes_it_gets) {
  const std::string edges =
      "a \n\r\x1b\x7f\x80\x8f\x90\x9f\xa0\xbf\xc0\xc2\xdf\xe0\xed\xef\xf0\xf4\xf5\xff";
  const CapturedLog log;
  for (int byte = 1; byte < 256; ++byte) LOGI("%c, eight or more|", byte);
  for (const char a : edges) {
    for (const char b : edges) {
      for (const char c : edges) LOGI("%c%c%c|", a, b, c);
    }
  }
  const std::string text = log.text();
  ASSERT_TRUE(dbus_validate_utf8(text.c_str(), nullptr));
  char before = 0;
  for (const char c : text) {
    ASSERT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << +c;
    ASSERT_FALSE(c == 0x7F || (before == '\xC2' && c < '\xA0')) << +c;
    before = c;
  }
  const std::size_t records = 255 + edges.size() * edges.size() * edges.size();
  EXPECT_EQ(countOf(text, "Z INFO f: "), records);
  EXPECT_EQ(countOf(text, "\n") - countOf(text, "\n  | "), records);
}

TEST(Log, puts_the_ids_of_the_work_into_a_line_behind_warnings_and_errors) {
  using gateway::LogScope;
  using gateway::LogSubject;
  const std::string job = "17";
  const std::string deployment = "a]\x1b[2J\n" + std::string(500, 'd');
  const std::string snapshot = "s-1";
  const auto shownFor = [](const char* format, const char* argument) {
    const CapturedLog log;
    log_print(3, "color", "tag", "path", "f", 1, format, argument);
    const std::string text = log.text();
    return text.substr(text.find("f: "));
  };
  EXPECT_EQ(shownFor("%s\n", "none"), "f: none\n");
  const LogScope ofJob(LogSubject::kJob, job);
  EXPECT_EQ(shownFor("%s\n\n", "one"), "f: one\n  | [jobId=17]\n");
  gateway::LogContext kept;
  {
    const LogScope ofNothing(LogSubject::kJob, nullptr);
    const LogScope ofResource(LogSubject::kResource, snapshot);
    EXPECT_EQ(shownFor("%s", "other"), "f: other\n  | [snapshotId=s-1]\n");
    const gateway::LogContextScope again(kept);
    EXPECT_EQ(shownFor("%s", "two\nlines"), "f: two\n  | lines\n  | [jobId=17 snapshotId=s-1]\n");
  }
  const LogScope ofDeployment(LogSubject::kDeployment, deployment);
  const std::string cut = shownFor("%s", std::string(std::size_t{2} * PIPE_BUF, '\t').c_str());
  EXPECT_NE(cut.find("\\x09 [cut]\n  | [jobId=17 deployId=a]\\x1b[2J\n  | ddd"), cut.npos) << cut;
  EXPECT_TRUE(cut.ends_with("d]\n"));
  const CapturedLog log;
  LOGI("not behind others");
  EXPECT_TRUE(log.has("f: not behind others\n"));
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
    // A size for which malloc takes its lock; volatile, or the compiler leaves the allocation out.
    void* volatile block = std::malloc(5000);
    std::free(block);
  }
  EXPECT_EQ(log.count(": handled 1 text 0.500000\n"), 500U);
}

}  // namespace
