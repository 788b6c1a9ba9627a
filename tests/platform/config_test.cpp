#include <TempFolder.h>
#include <gateway/config.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>

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

/// What gateway-config prints when it is given these words of a shell, and its status behind that.
std::string tool(const std::string& words) {
  std::FILE* output = popen(("'" GATEWAY_CONFIG_TOOL "' " + words + " 2>&1").c_str(), "re");
  std::string printed;
  for (int next = std::fgetc(output); next != EOF; next = std::fgetc(output)) {
    printed += static_cast<char>(next);
  }
  return printed + std::to_string(WEXITSTATUS(pclose(output)));
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
  const std::string together =
      "for i in 1 2 3 4 5 6 7 8; do '" GATEWAY_CONFIG_TOOL "' set $i x & done; wait";
  for (int round = 0; round < 50; ++round) {
    fs::remove_all(fs::path(path).parent_path());
    ASSERT_EQ(std::system(together.c_str()), 0);
    for (int i = 1; i <= 8; ++i) EXPECT_EQ(get(std::to_string(i)), "x");
  }
}

TEST_F(Config, ToolListsAndReadsAndLogsWhatTheEnvironmentSays) {
  ASSERT_TRUE(set("key", "a value") && set("another", "1"));
  EXPECT_EQ(tool("list"), "another=1\nkey=a value\n0");
  EXPECT_EQ(tool("get key"), "a value\n0");
  EXPECT_TRUE(tool("set key").ends_with("2")) << "a word is missing";
  fs::remove_all(folder / "made");
  std::ofstream(folder / "made") << "in the way, and worth a warning";
  EXPECT_NE(tool("get key").find(" WARN "), std::string::npos);
  setenv("GATEWAY_LOG_LEVEL", "3", 1);
  EXPECT_EQ(tool("get key"), "1");
  unsetenv("GATEWAY_LOG_LEVEL");
}

}  // namespace
