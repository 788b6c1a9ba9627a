#include <TempFolder.h>
#include <gateway/config.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>

namespace {

namespace fs = std::filesystem;

constexpr int kTimeoutMs = 5000;

std::optional<std::string> get(const std::string& key, int timeoutMs = kTimeoutMs) {
  char* value = nullptr;
  if (get_config(nullptr, key.c_str(), &value, timeoutMs) != 0) return std::nullopt;
  const std::unique_ptr<char, decltype(&std::free)> owned(value, std::free);
  return std::string(value);
}

bool set(const std::string& key, const std::string& value, int timeoutMs = kTimeoutMs) {
  return set_config(nullptr, key.c_str(), value.c_str(), timeoutMs) == 0;
}

/// Starts gateway-config with these words of a shell.
std::FILE* startTool(const std::string& words) {
  return popen(("'" GATEWAY_CONFIG_TOOL "' " + words + " 2>&1").c_str(), "re");
}

/// What the tool printed, and its status behind that.
std::string endOf(std::FILE* tool) {
  std::string printed;
  for (int next = std::fgetc(tool); next != EOF; next = std::fgetc(tool)) {
    printed += static_cast<char>(next);
  }
  return printed + std::to_string(WEXITSTATUS(pclose(tool)));
}

class Config : public testing::Test {
 protected:
  Config() { setenv("GATEWAY_CONFIG_DB", path.c_str(), 1); }
  ~Config() override { unsetenv("GATEWAY_CONFIG_DB"); }

  const test::TempFolder folder;
  const std::string path = folder / "made/by/it/gateway.db";
};

TEST_F(Config, GivesBackWhatWasWrittenByteForByte) {
  for (const std::string& value :
       {std::string(), std::string("it's \"quoted\"\n\xFF\xFE no UTF-8 \xC3")}) {
    for (const std::string& key : {std::string("key"), value}) {
      ASSERT_TRUE(set(key, value));
      EXPECT_EQ(get(key), value);
    }
  }
  EXPECT_EQ(fs::status(path).permissions(), fs::perms(0600));
  EXPECT_EQ(fs::status(path + "-wal").permissions(), fs::perms(0600));
}

TEST_F(Config, FollowsAFileThatIsDeletedOrReplacedOrMended) {
  ASSERT_TRUE(set("key", "first"));
  fs::remove_all(fs::path(path).parent_path());
  EXPECT_EQ(get("key"), std::nullopt);
  ASSERT_TRUE(set("key", "second"));

  const std::string other = folder / "other.db";
  setenv("GATEWAY_CONFIG_DB", other.c_str(), 1);
  std::ofstream(other) << std::string(5000, 'x');
  EXPECT_FALSE(set("key", "value")) << "this is no database";
  fs::remove(other);
  ASSERT_TRUE(set("key", "of the other"));
  setenv("GATEWAY_CONFIG_DB", path.c_str(), 1);  // closes the other
  EXPECT_EQ(get("key"), "second");
  for (const char* suffix : {"-wal", "-shm"}) fs::remove(path + suffix);
  fs::rename(other, path);
  EXPECT_EQ(get("key"), "of the other");
}

TEST_F(Config, WaitsForALockedFileAsLongAsItIsTold) {
  ASSERT_TRUE(set("key", "old"));
  sqlite3* raw = nullptr;
  ASSERT_EQ(sqlite3_open(path.c_str(), &raw), SQLITE_OK);
  const std::unique_ptr<sqlite3, decltype(&sqlite3_close)> other(raw, sqlite3_close);
  ASSERT_EQ(sqlite3_exec(raw, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);

  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(set("key", "new", 100));
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(90));
  EXPECT_EQ(get("key", 0), "old") << "readers don't wait for a writer";
}

TEST_F(Config, SeveralProcessesMayMakeItAtTheSameTime) {
  for (int round = 0; round < 30; ++round) {
    fs::remove_all(fs::path(path).parent_path());
    std::array<std::FILE*, 8> tools{};
    for (std::size_t i = 0; i < 8; ++i) tools[i] = startTool("set " + std::to_string(i) + " x");
    for (std::FILE* tool : tools) EXPECT_EQ(endOf(tool), "0");
    for (int i = 0; i < 8; ++i) EXPECT_EQ(get(std::to_string(i)), "x");
  }
}

TEST_F(Config, ToolListsAndReadsAndLogsWhatTheEnvironmentSays) {
  ASSERT_TRUE(set("key", "a value") && set("another", "1"));
  EXPECT_EQ(endOf(startTool("list")), "another=1\nkey=a value\n0");
  EXPECT_EQ(endOf(startTool("get key")), "a value\n0");
  EXPECT_TRUE(endOf(startTool("set key")).ends_with("2")) << "a word is missing";
  fs::remove_all(folder / "made");
  std::ofstream(folder / "made") << "in the way, and worth a warning";
  EXPECT_NE(endOf(startTool("get key")).find(" WARN "), std::string::npos);
  setenv("GATEWAY_LOG_LEVEL", "3", 1);
  EXPECT_EQ(endOf(startTool("get key")), "1");
  unsetenv("GATEWAY_LOG_LEVEL");
}

}  // namespace
