#include <gateway/config.h>
#include <sqlite3.h>
#include <sys/syscall.h>

#include "support/test.h"

using namespace test;

static std::atomic<int> syncs{0};

// In the place of the C library's, which SQLite calls.
extern "C" int fdatasync(int file) {
  ++syncs;
  return static_cast<int>(syscall(SYS_fdatasync, file));
}

namespace {

constexpr int kTimeoutMs = 5000;

std::optional<std::string> get(const std::string& key) {
  char* value = nullptr;
  if (get_config(nullptr, key.c_str(), &value, kTimeoutMs) != 0) return std::nullopt;
  const std::unique_ptr<char, decltype(&std::free)> owned(value, std::free);
  return std::string(value);
}

bool set(const std::string& key, const std::string& value) {
  return set_config(nullptr, key.c_str(), value.c_str(), kTimeoutMs) == 0;
}

class Config : public testing::Test {
 protected:
  Config() { setenv("GATEWAY_CONFIG_DB", path.c_str(), 1); }

  const std::string path = "/tmp/var/made/by/it/gateway.db";
};

TEST_F(Config, gives_back_every_byte_to_its_owner_from_a_file_that_may_be_deleted_or_replaced) {
  const std::string odd = "it's \"quoted\"\n\xFF\xFE no UTF-8 \xC3";
  ASSERT_TRUE(set(odd, odd));
  EXPECT_EQ(get(odd), odd);
  const int before = syncs;
  ASSERT_TRUE(set("key", "on the disk"));
  EXPECT_GT(syncs, before);
  for (const char* suffix : {"", "-wal"}) {
    EXPECT_EQ(fs::status(path + suffix).permissions(), fs::perms(0600));
  }
  fs::remove_all(fs::path(path).parent_path());
  EXPECT_EQ(get(odd), std::nullopt);
  ASSERT_TRUE(set("key", "second"));

  const std::string other = "/tmp/var/other.db";
  setenv("GATEWAY_CONFIG_DB", other.c_str(), 1);
  ASSERT_TRUE(set("key", "of the other"));
  setenv("GATEWAY_CONFIG_DB", path.c_str(), 1);  // closes the other
  EXPECT_EQ(get("key"), "second");
  for (const char* suffix : {"-wal", "-shm"}) fs::remove(path + suffix);
  fs::rename(other, path);
  EXPECT_EQ(get("key"), "of the other");
}

TEST_F(Config, tells_a_key_that_is_absent_from_a_store_that_could_not_be_read) {
  const auto look = [](const char* key) {
    char* value = nullptr;
    const int result = get_config(nullptr, key, &value, 10);
    EXPECT_EQ(value != nullptr, result == 0);
    std::free(value);
    return result;
  };
  const auto close = [&] {
    setenv("GATEWAY_CONFIG_DB", "/tmp/var/other.db", 1);
    look("other");
  };
  const auto expectUnreadable = [&](const char* why) {
    setenv("GATEWAY_CONFIG_DB", path.c_str(), 1);
    for (const char* key : {"kept", "absent"}) {
      EXPECT_EQ(look(key), GATEWAY_CONFIG_UNREADABLE) << why << ": " << key;
    }
    close();
  };
  ASSERT_TRUE(set("kept", "value"));
  EXPECT_EQ(look("kept"), 0);
  EXPECT_NE(look("absent"), 0);
  EXPECT_NE(look("absent"), GATEWAY_CONFIG_UNREADABLE);
  EXPECT_EQ(look(nullptr), GATEWAY_CONFIG_UNREADABLE);
  close();
  sqlite3* other = nullptr;
  sqlite3_open(path.c_str(), &other);
  sqlite3_exec(other, "PRAGMA locking_mode=EXCLUSIVE; BEGIN EXCLUSIVE", nullptr, nullptr, nullptr);
  expectUnreadable("locked");
  sqlite3_close(other);
  fs::remove(path);
  fs::create_directory(path);
  expectUnreadable("out of reach");
}

TEST_F(Config, several_processes_may_make_it_at_the_same_time) {
  const char* together =
      "for i in 1 2 3 4 5 6 7 8; do '" GATEWAY_CONFIG_TOOL "' set $i x & done; wait";
  for (int round = 0; round < 50; ++round) {
    fs::remove_all(fs::path(path).parent_path());
    ASSERT_EQ(std::system(together), 0);
    for (int i = 1; i <= 8; ++i) EXPECT_EQ(get(std::to_string(i)), "x");
  }
}

TEST_F(Config, tool_logs_what_the_environment_asks_for) {
  const CapturedLog log;
  setenv("GATEWAY_CONFIG_DB", "/dev/null/in/the/way", 1);
  EXPECT_NE(std::system("'" GATEWAY_CONFIG_TOOL "' get key"), 0);
  EXPECT_NE(std::system("GATEWAY_LOG_LEVEL=3 '" GATEWAY_CONFIG_TOOL "' get key"), 0);
  EXPECT_EQ(log.count(" WARN "), 1U);
}

}  // namespace
