// What a flood from a few places costs, and that an ordinary day loses nothing.

#include <fcntl.h>
#include <gateway/log_macros.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstdio>
#include <map>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "flood_guard.h"
namespace {

// What is written to standard error from its making to end(): how often which message, by the
// reader of a pipe, since it is too much to be kept.
class Counted {
 public:
  Counted() : standardError(dup(STDERR_FILENO)) {
    std::array<int, 2> ends{};
    EXPECT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
    dup2(ends[1], STDERR_FILENO);
    close(ends[1]);
    reader = std::jthread([this, from = ends[0]] { count(from); });
  }
  void end() {
    dup2(standardError, STDERR_FILENO);
    close(standardError);
    reader.join();
  }

  std::size_t bytes = 0;
  std::map<std::string, std::size_t, std::less<>> records;
  std::vector<std::string> told;  // of what was left out

 private:
  void count(int from) {
    FILE* const file = fdopen(from, "r");
    std::array<char, 5000> line{};
    while (std::fgets(line.data(), static_cast<int>(line.size()), file) != nullptr) {
      const std::string_view text = line.data();
      bytes += text.size();
      constexpr std::string_view kTelling = " WARN log_print: ";
      const std::size_t telling = text.find(kTelling);
      if (telling != text.npos) {
        told.emplace_back(text.substr(telling + kTelling.size()));
      } else {
        const std::string_view message = text.substr(text.find(" f: ") + 4);
        const auto known = records.find(message);
        ++(known != records.end() ? known->second : records[std::string(message)]);
      }
    }
    std::fclose(file);
  }

  const int standardError;
  std::jthread reader;
};

std::atomic<std::int64_t> nowMs{0};

class Flood : public testing::Test {
 protected:
  Flood() {
    nowMs = 0;
    flood_guard::reset([] { return nowMs.load(); });
  }
  ~Flood() override { flood_guard::reset(flood_guard::uptimeMs); }

  Counted out;
};

void record(int line, const char* text) {
  log_print(1, "color", "tag", "path.cpp", "f", line, "%s\n", text);
}

TEST_F(Flood, is_no_deployment_of_ten_thousand_resources_nor_a_second_one_behind_it) {
  for (int resource = 0; resource < 2 * 10000; ++resource) {
    for (int line = 1; line <= 17; ++line) record(line, "r");
    for (int again = 0; again < 8; ++again) record(18, "of one place");
  }
  out.end();
  EXPECT_EQ(out.records["r\n"], 2U * 10000 * 17);
  EXPECT_EQ(out.records["of one place\n"], 2U * 10000 * 8);
  EXPECT_TRUE(out.told.empty());
}

TEST_F(Flood, from_several_threads_gets_one_allowance) {
  {
    const auto write = [] {
      for (int n = 0; n < flood_guard::kAllowance / 3; ++n) record(1, "r");
    };
    const std::array<std::jthread, 4> threads{std::jthread(write), std::jthread(write),
                                              std::jthread(write), std::jthread(write)};
  }
  record(2, "of another place");
  out.end();
  EXPECT_EQ(out.records["r\n"], std::size_t{flood_guard::kAllowance});
  EXPECT_EQ(out.records["of another place\n"], 1U);
}

// The subscription that is tried without pause as long as there is no bridge. The records of one
// try, with names of the identity as long as they get.
TEST_F(Flood, of_a_whole_day_is_less_than_500_MB_and_is_told_of_once_a_minute) {
  const std::string begin = "subscribe topic /sys/" + std::string(64, 'p') + '/' +
                            std::string(64, 'd') + "/edge/rule/trigger begin...";
  const char* const reason =
      "[sendMessageWithReplyBlocking]return message type is DBUS_MESSAGE_TYPE_ERROR reason: "
      "org.freedesktop.DBus.Error.ServiceUnknown ";
  const char* const text =
      "publish parse failed res = The name iot.bridge.mqtt was not provided by any .service files";
  constexpr std::int64_t kDayMs = 86400000;
  constexpr std::int64_t kTryMs = 100;
  std::size_t tries = 0;
  for (; nowMs < kDayMs; nowMs += kTryMs, ++tries) {
    record(1, begin.c_str());
    record(2, reason);
    record(3, text);
  }
  nowMs += flood_guard::kTellMs;
  record(4, "the bridge is there");
  out.end();
  EXPECT_LT(out.bytes, 500'000'000U);
  EXPECT_GT(out.told.size(), 900U);  // all the day but the hours in which nothing was left out
  EXPECT_LE(out.told.size(), 86400U / 60 + 1);
  std::size_t accountedFor = 0;
  for (const auto& [message, times] : out.records) accountedFor += times;
  for (const std::string& line : out.told) {
    accountedFor += std::stoull(line);
    EXPECT_NE(line.find(" records were left out of this log, the last of them from path.cpp line "),
              line.npos);
  }
  EXPECT_EQ(accountedFor, 3 * tries + 1);
}

}  // namespace
