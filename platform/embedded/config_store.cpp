#include "config_store.h"

#include <fcntl.h>
#include <gateway/log_macros.h>
#include <sqlite3.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <mutex>
#include <system_error>

namespace config_store {
namespace {

struct DatabaseCloser {
  void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
};
struct StatementCloser {
  void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
};
using StatementPtr = std::unique_ptr<sqlite3_stmt, StatementCloser>;

constexpr int kRetryMs = 5;
constexpr const char* kCreate =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=FULL;"
    "CREATE TABLE IF NOT EXISTS config(key TEXT PRIMARY KEY, value TEXT NOT NULL)";
constexpr const char* kGet = "SELECT value FROM config WHERE key=?1";
constexpr const char* kSet =
    "INSERT INTO config(key,value) VALUES(?1,?2) ON CONFLICT(key) DO UPDATE SET "
    "value=excluded.value";
constexpr const char* kList = "SELECT key,value FROM config ORDER BY key";

// The open database and its statements, which go before it.
struct Store {
  std::unique_ptr<sqlite3, DatabaseCloser> database;
  StatementPtr getStatement;
  StatementPtr setStatement;
  dev_t device = 0;
  ino_t inode = 0;

  void close() {
    getStatement.reset();
    setStatement.reset();
    database.reset();
  }
};

std::mutex storeLock;

// With the lock held. Never destroyed: threads outlive static destruction.
Store& store() {
  static auto& theStore = *std::make_unique<Store>().release();
  return theStore;
}

StatementPtr prepare(sqlite3* database, const char* sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v3(database, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  return StatementPtr(statement);
}

// A database that was deleted or replaced would go on taking writes that nobody ever reads.
bool isSameFile(const Store& open, const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0 && info.st_dev == open.device && info.st_ino == open.inode;
}

void syncDirectory(const std::filesystem::path& path) {
  const int directory = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (directory < 0) return;
  fsync(directory);
  ::close(directory);
}

// Makes the missing parents of `path`, and has their names survive a power cut: SQLite syncs only
// the directory of its own files. A failure shows when the database is opened.
void makeParents(const std::filesystem::path& path) {
  const std::filesystem::path parent = path.parent_path();
  std::error_code ignored;
  if (parent.empty() || std::filesystem::exists(parent, ignored)) return;
  makeParents(parent);
  std::filesystem::create_directory(parent, ignored);
  syncDirectory(parent.has_parent_path() ? parent.parent_path() : ".");
}

// The device secret will be in it, and SQLite lets everyone read the files that it makes.
void makePrivateFile(const std::string& path) {
  const int file = ::open(path.c_str(), O_CREAT | O_EXCL | O_RDWR | O_CLOEXEC, 0600);
  if (file >= 0) ::close(file);
}

int openStore(Store& open, const std::string& path, int timeoutMs) {
  makeParents(path);
  makePrivateFile(path);
  sqlite3* raw = nullptr;
  const int opened =
      sqlite3_open_v2(path.c_str(), &raw,
                      SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
  open.database.reset(raw);
  if (opened != SQLITE_OK) return opened;
  sqlite3_busy_timeout(raw, timeoutMs);
  const int created = sqlite3_exec(raw, kCreate, nullptr, nullptr, nullptr);
  if (created != SQLITE_OK) return created;
  open.getStatement = prepare(raw, kGet);
  open.setStatement = prepare(raw, kSet);
  struct stat info {};
  if (stat(path.c_str(), &info) == 0) {
    open.device = info.st_dev;
    open.inode = info.st_ino;
  }
  return open.getStatement && open.setStatement ? SQLITE_OK : SQLITE_ERROR;
}

// Reading makes no file: the one who looks first may not be the one to whom it is to belong. With
// the lock held; what is open then is another file, or one that was deleted.
bool isMissing() {
  struct stat info {};
  if (stat(databasePath().c_str(), &info) == 0 || errno != ENOENT) return false;
  store().close();
  return true;
}

// With the lock held: opens the store if it is not open, and sets the busy time-out. Returns
// SQLITE_OK, or why the store can't be used.
int ready(int timeoutMs) {
  Store& open = store();
  const std::string path = databasePath();
  if (open.database && !isSameFile(open, path)) open.close();
  if (open.database) {
    sqlite3_busy_timeout(open.database.get(), timeoutMs);
    return SQLITE_OK;
  }
  // While another process turns a new file to WAL mode, SQLite answers "busy" at once, whatever the
  // busy time-out, and offers nothing to wait for. So this tries again.
  using Clock = std::chrono::steady_clock;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  int result = openStore(open, path, timeoutMs);
  while (result == SQLITE_BUSY && Clock::now() < deadline) {
    open.close();
    sqlite3_sleep(kRetryMs);
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    result = openStore(open, path, std::max(static_cast<int>(left.count()), 0));
  }
  if (result == SQLITE_OK) return result;
  LOGW("configuration store %s can't be opened: %s\n", path.c_str(), sqlite3_errstr(result));
  open.close();
  return result;
}

// Makes the statement ready for its next use. After an error of the file itself the store is
// closed: the next call opens what may have been repaired by then.
void finish(sqlite3_stmt* statement, int result) {
  sqlite3_reset(statement);
  sqlite3_clear_bindings(statement);
  if (result == SQLITE_ROW || result == SQLITE_DONE) return;
  LOGW("configuration store: %s\n", sqlite3_errstr(result));
  if ((result & 0xFF) != SQLITE_BUSY) store().close();
}

void bind(sqlite3_stmt* statement, int index, const std::string& text) {
  sqlite3_bind_text64(statement, index, text.data(), text.size(), SQLITE_STATIC, SQLITE_UTF8);
}

std::string column(sqlite3_stmt* statement, int index) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, index));
  return text != nullptr
             ? std::string(text, static_cast<std::size_t>(sqlite3_column_bytes(statement, index)))
             : std::string();
}

}  // namespace

std::string databasePath() {
  const char* path = std::getenv("GATEWAY_CONFIG_DB");
  return path != nullptr && *path != '\0' ? path : "/tarnvale/config/gateway.db";
}

Found get(const std::string& key, int timeout_ms) {
  const std::lock_guard guard(storeLock);
  if (isMissing()) return {true, std::nullopt};
  if (ready(timeout_ms) != SQLITE_OK) return {};
  sqlite3_stmt* statement = store().getStatement.get();
  bind(statement, 1, key);
  const int result = sqlite3_step(statement);
  Found found{result == SQLITE_ROW || result == SQLITE_DONE, std::nullopt};
  if (result == SQLITE_ROW) found.value = column(statement, 0);
  finish(statement, result);
  return found;
}

int set(const std::string& key, const std::string& value, int timeout_ms) {
  const std::lock_guard guard(storeLock);
  if (const int result = ready(timeout_ms); result != SQLITE_OK) return result;
  sqlite3_stmt* statement = store().setStatement.get();
  bind(statement, 1, key);
  bind(statement, 2, value);
  const int result = sqlite3_step(statement);
  finish(statement, result);
  return result == SQLITE_DONE ? 0 : result;
}

std::optional<std::vector<std::pair<std::string, std::string>>> list(int timeout_ms) {
  using Entries = std::vector<std::pair<std::string, std::string>>;
  const std::lock_guard guard(storeLock);
  if (isMissing()) return Entries{};
  if (ready(timeout_ms) != SQLITE_OK) return std::nullopt;
  const StatementPtr statement = prepare(store().database.get(), kList);
  if (!statement) return std::nullopt;
  Entries entries;
  int result = sqlite3_step(statement.get());
  for (; result == SQLITE_ROW; result = sqlite3_step(statement.get())) {
    entries.emplace_back(column(statement.get(), 0), column(statement.get(), 1));
  }
  if (result != SQLITE_DONE) return std::nullopt;
  return entries;
}

}  // namespace config_store
