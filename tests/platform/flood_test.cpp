// What a flood from a few places costs, and that an ordinary day loses nothing.

#include <gateway/log_macros.h>

#include <array>

#include "flood_guard.h"
#include "support/test.h"

using namespace test;

namespace {

constexpr const char* kPath = "path.cpp";
std::atomic<std::int64_t> nowMs{0};

class Flood : public testing::Test {
 protected:
  Flood() {
    nowMs = 0;
    flood_guard::reset([] { return nowMs.load(); });
  }
  ~Flood() override { flood_guard::reset(flood_guard::uptimeMs); }

  static bool admits(int line) { return flood_guard::admits(kPath, line); }
};

TEST_F(Flood, is_no_deployment_of_ten_thousand_resources_nor_a_second_one_behind_it) {
  for (int resource = 0; resource < 2 * 10000; ++resource) {
    for (int line = 1; line <= 17; ++line) ASSERT_TRUE(admits(line));
    for (int again = 0; again < 8; ++again) ASSERT_TRUE(admits(18));
  }
  EXPECT_EQ(flood_guard::toTell().records, 0U);
}

TEST_F(Flood, from_several_threads_gets_one_allowance) {
  std::atomic<std::int64_t> admitted = 0;
  {
    const auto write = [&] {
      for (int n = 0; n < flood_guard::kAllowance / 3; ++n) admitted += admits(1);
    };
    const std::array<std::jthread, 4> threads{std::jthread(write), std::jthread(write),
                                              std::jthread(write), std::jthread(write)};
  }
  EXPECT_EQ(admitted, flood_guard::kAllowance);
  EXPECT_TRUE(admits(2)) << "of another place";
}

void record(int line, const char* text) {
  log_print(1, "color", "tag", kPath, "f", line, "%s\n", text);
}

// The subscription that is tried without pause as long as there is no bridge. The records of one
// try, with names of the identity as long as they get.
TEST_F(Flood, of_a_whole_day_is_less_than_500_MB_and_is_told_of_once_a_minute) {
  const std::string begin = "subscribe topic /sys/" + std::string(64, 'p') + '/' +
                            std::string(64, 'd') + "/edge/rule/trigger begin...";
  const char* const texts[] = {
      begin.c_str(),
      "[sendMessageWithReplyBlocking]return message type is DBUS_MESSAGE_TYPE_ERROR reason: "
      "org.freedesktop.DBus.Error.ServiceUnknown ",
      "publish parse failed res = The name iot.bridge.mqtt was not provided by any .service files"};
  const CapturedLog log;
  for (int line = 0; line < 3; ++line) record(line, texts[line]);
  const std::size_t bytesOfATry = log.text().size();
  std::size_t admitted = 3;
  std::size_t leftOut = 0;
  std::size_t told = 0;
  std::size_t tries = 1;
  constexpr std::int64_t kDayMs = 86400000;
  for (; nowMs < kDayMs; nowMs += 100, ++tries) {
    for (int line = 0; line < 3; ++line) admitted += admits(line) ? 1 : 0;
    const std::size_t records = flood_guard::toTell().records;
    leftOut += records;
    told += records > 0 ? 1 : 0;
  }
  EXPECT_LT(admitted / 3 * bytesOfATry, 500'000'000U);
  EXPECT_GT(told, 900U);  // all the day but the hours in which nothing was left out
  EXPECT_LE(told, 86400U / 60 + 1);
  nowMs += flood_guard::kTellMs;
  EXPECT_EQ(admitted + leftOut + flood_guard::toTell().records, 3 * tries);
}

TEST_F(Flood, is_not_written_but_told_of) {
  while (admits(1)) {
  }
  const CapturedLog log;
  record(1, "left out");
  record(2, "of another place");
  EXPECT_FALSE(log.has("left out\n"));
  EXPECT_TRUE(
      log.has(" WARN log_print: 2 records were left out of this log, the last of them from "
              "path.cpp line 1.\n"));
  EXPECT_TRUE(log.has(": of another place\n"));
}

}  // namespace
