#include "status_file/status_file.h"

#include <gtest/gtest.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <thread>

#include "lib/file_text.h"
#include "lib/json_helper.h"
#include "neighbour/neighbour.h"
#include "support/CapturedLog.h"

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr const char* kFolder = "/tarnvale/status";
constexpr const char* kFile = "/tarnvale/status/status.json";

Json::Value shown() {
  std::string text;
  Json::Value members;
  static_cast<void>(jobm::readFile(kFile, text) && jobm::json::parse(text, members));
  return members;
}

// The first of several folders, as systemd passes them.
void start() {
  setenv("RUNTIME_DIRECTORY", (std::string(kFolder) + ":/tarnvale/other").c_str(), 1);
  jobm::startStatusFile();
}

// Whether the file has been replaced since this was last asked; the kernel joins events that nobody
// has read.
bool wasReplaced(int watch) {
  std::array<char, 4096> events{};
  return read(watch, events.data(), events.size()) > 0;
}

TEST(StatusFile, is_replaced_at_most_once_a_second_and_not_while_nothing_changes) {
  std::filesystem::create_directories(kFolder);
  ASSERT_TRUE(
      jobm::writeFile(kFile, R"({"runnerId": 1, "deployments": [{"deployId": "before"}]})"));
  const int watch = inotify_init1(IN_CLOEXEC | IN_NONBLOCK);
  ASSERT_GE(inotify_add_watch(watch, kFolder, IN_MOVED_TO), 0);
  start();
  const auto begin = steady_clock::now();
  int number = 0;
  int replaced = 0;
  for (; steady_clock::now() - begin < milliseconds(2500); ++number) {
    jobm::setStatus("runnerId", number);
    jobm::setStatusEntry("executors", "e" + std::to_string(number % 3), number);
    std::this_thread::sleep_for(milliseconds(5));
    replaced += wasReplaced(watch) ? 1 : 0;
  }
  jobm::setStatusWord("phase", "registered");
  jobm::addStatusOutcome(Json::Value(Json::objectValue));
  ASSERT_TRUE(gateway::eventually([] { return shown()["phase"]["state"] == "registered"; }));
  EXPECT_EQ(shown()["runnerId"], number - 1);
  EXPECT_EQ(shown()["executors"].size(), 3U);
  EXPECT_EQ(shown()["deployments"][0]["deployId"], "before");
  EXPECT_TRUE(shown()["deployments"][1].isMember("finished"));
  EXPECT_LE(replaced, 3);
  EXPECT_GE(replaced, 2);
  wasReplaced(watch);
  jobm::setStatusWord("phase", "registered");
  jobm::setStatus("runnerId", number - 1);
  jobm::setStatus("runnerId", number);
  jobm::setStatus("runnerId", number - 1);
  std::this_thread::sleep_for(milliseconds(1500));
  EXPECT_FALSE(wasReplaced(watch));
  close(watch);
}

TEST(StatusFile, costs_one_log_line_as_long_as_it_can_not_be_written_and_is_written_once_it_can) {
  const test::CapturedLog log;
  start();
  jobm::setStatus("waiting", 1);
  ASSERT_TRUE(gateway::eventually([&] { return log.has("can't be written"); }));
  jobm::setStatus("waiting", 2);
  std::this_thread::sleep_for(milliseconds(1500));
  std::filesystem::create_directories(kFolder);
  ASSERT_TRUE(gateway::eventually([] { return shown()["waiting"] == 2; }));
  EXPECT_EQ(log.count("can't be written"), 1U);
}

}  // namespace
