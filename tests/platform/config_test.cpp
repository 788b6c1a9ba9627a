#include <CapturedLog.h>
#include <TempFolder.h>
#include <gateway/config.h>
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

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

/// Starts gateway-config with its standard output in the file `output`.
pid_t startTool(const std::vector<std::string>& words, const std::string& output) {
  const pid_t child = fork();
  if (child != 0) return child;
  std::vector<char*> arguments{const_cast<char*>(GATEWAY_CONFIG_TOOL)};
  for (const std::string& word : words) arguments.push_back(const_cast<char*>(word.c_str()));
  arguments.push_back(nullptr);
  if (std::freopen(output.c_str(), "w", stdout) != nullptr) {
    execv(GATEWAY_CONFIG_TOOL, arguments.data());
  }
  _exit(127);
}

int statusOf(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class Config : public testing::Test {
 protected:
  Config() { setenv("GATEWAY_CONFIG_DB", path.c_str(), 1); }
  ~Config() override { unsetenv("GATEWAY_CONFIG_DB"); }

  /// Runs the tool and returns its status; what it printed is in `printed`.
  int tool(const std::vector<std::string>& words) {
    const int status = statusOf(startTool(words, folder / "out"));
    std::ifstream file(folder / "out");
    printed.assign(std::istreambuf_iterator<char>(file), {});
    return status;
  }

  const test::TempFolder folder;
  const std::string path = folder / "made/by/it/gateway.db";
  std::string printed;
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

TEST_F(Config, FollowsAFileThatIsDeletedOrReplaced) {
  ASSERT_TRUE(set("key", "first"));
  fs::remove_all(fs::path(path).parent_path());
  EXPECT_EQ(get("key"), std::nullopt);
  ASSERT_TRUE(set("key", "second"));

  const std::string other = folder / "other.db";
  setenv("GATEWAY_CONFIG_DB", other.c_str(), 1);
  ASSERT_TRUE(set("key", "of the other"));
  setenv("GATEWAY_CONFIG_DB", path.c_str(), 1);  // closes the other
  EXPECT_EQ(get("key"), "second");
  for (const char* suffix : {"-wal", "-shm"}) fs::remove(path + suffix);
  fs::rename(other, path);
  EXPECT_EQ(get("key"), "of the other");
}

TEST_F(Config, OpensAtALaterCallWhatCouldNotBeOpened) {
  fs::create_directories(fs::path(path).parent_path());
  std::ofstream(path) << std::string(5000, 'x');
  EXPECT_FALSE(set("key", "value")) << "this is no database";
  fs::remove(path);
  EXPECT_TRUE(set("key", "value"));
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
    std::vector<pid_t> tools(8);
    for (pid_t& child : tools) {
      child = startTool({"set", std::to_string(&child - tools.data()), "x"}, "/dev/null");
    }
    for (const pid_t child : tools) EXPECT_EQ(statusOf(child), 0);
    for (int i = 0; i < 8; ++i) EXPECT_EQ(get(std::to_string(i)), "x");
  }
}

TEST_F(Config, ToolReadsWritesAndLists) {
  EXPECT_EQ(tool({"get", "key"}), 1);
  EXPECT_EQ(tool({"set", "key", "a value"}), 0);
  EXPECT_EQ(get("key"), "a value");
  ASSERT_TRUE(set("another", "1"));
  EXPECT_EQ(tool({"get", "key"}), 0);
  EXPECT_EQ(printed, "a value\n");
  EXPECT_EQ(tool({"list"}), 0);
  EXPECT_EQ(printed, "another=1\nkey=a value\n");
  EXPECT_EQ(tool({"set", "key"}), 2);
}

TEST_F(Config, TheEnvironmentSaysWhichRecordsTheLogKeeps) {
  std::ofstream(folder / "made") << "so that a warning is due";
  for (const char* level : {"2", "3"}) {
    const test::CapturedLog log;
    setenv("GATEWAY_LOG_LEVEL", level, 1);
    EXPECT_EQ(tool({"get", "key"}), 1);
    EXPECT_EQ(log.has(" WARN "), level[0] == '2');
  }
  unsetenv("GATEWAY_LOG_LEVEL");
}

}  // namespace
