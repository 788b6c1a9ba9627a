#include "store.h"

#include <gateway/log_macros.h>

#include <cstdio>

namespace gateway {
namespace {

constexpr int kBusyMs = 5000;
// What was written is in the kernel's hands, so it survives the end of the bridge, however that
// comes; a power cut can take back the last moments, but never damages the database. FULL would
// wait for the disk with every message. Removed messages need not be overwritten: that would write
// each of them twice.
constexpr const char* kSetUp =
    "PRAGMA journal_mode=WAL;"
    "PRAGMA synchronous=NORMAL;"
    "PRAGMA secure_delete=OFF;"
    "PRAGMA journal_size_limit=4194304;"
    "CREATE TABLE IF NOT EXISTS outbox"
    "(id INTEGER PRIMARY KEY, topic TEXT NOT NULL, payload TEXT NOT NULL, qos INTEGER NOT NULL,"
    " size INTEGER NOT NULL);"
    "CREATE TABLE IF NOT EXISTS subscription"
    "(filter TEXT NOT NULL, name TEXT NOT NULL, qos INTEGER NOT NULL, PRIMARY KEY(filter, name))";

}  // namespace

Statement::Statement(sqlite3* database, const char* sql) {
  sqlite3_stmt* raw = nullptr;
  sqlite3_prepare_v3(database, sql, -1, SQLITE_PREPARE_PERSISTENT, &raw, nullptr);
  statement.reset(raw);
}

Statement& Statement::bind(int index, std::int64_t value) {
  sqlite3_bind_int64(statement.get(), index, value);
  return *this;
}

Statement& Statement::bind(int index, std::string_view value) {
  sqlite3_bind_text64(statement.get(), index, value.data(), value.size(), SQLITE_STATIC,
                      SQLITE_UTF8);
  return *this;
}

bool Statement::step() {
  const int result = sqlite3_step(statement.get());
  if (result == SQLITE_ROW) return true;
  if (result != SQLITE_DONE) LOGE("bridge's store: %s", sqlite3_errstr(result));
  sqlite3_reset(statement.get());
  return false;
}

bool Statement::run() {
  while (sqlite3_step(statement.get()) == SQLITE_ROW) {
  }
  const int result = sqlite3_reset(statement.get());
  if (result != SQLITE_OK) LOGE("bridge's store: %s", sqlite3_errstr(result));
  return result == SQLITE_OK;
}

std::int64_t Statement::number(int index) const {
  return sqlite3_column_int64(statement.get(), index);
}

std::string Statement::text(int index) const {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement.get(), index));
  const int size = sqlite3_column_bytes(statement.get(), index);
  return text != nullptr ? std::string(text, static_cast<std::size_t>(size)) : std::string();
}

bool Store::open(const std::string& file) {
  const std::string name = file.empty() ? ":memory:" : file;
  int result = tryOpen(name);
  if (result == SQLITE_NOTADB || result == SQLITE_CORRUPT) {
    LOGE("%s is damaged; it is kept as %s.damaged", name.c_str(), name.c_str());
    database.reset();
    std::rename(name.c_str(), (name + ".damaged").c_str());
    result = tryOpen(name);
  }
  if (result != SQLITE_OK) LOGE("%s can't be opened: %s", name.c_str(), sqlite3_errstr(result));
  return result == SQLITE_OK;
}

int Store::tryOpen(const std::string& file) {
  sqlite3* raw = nullptr;
  const int opened =
      sqlite3_open_v2(file.c_str(), &raw, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  database.reset(raw);
  if (opened != SQLITE_OK) return opened;
  sqlite3_busy_timeout(raw, kBusyMs);
  return sqlite3_exec(raw, kSetUp, nullptr, nullptr, nullptr);
}

}  // namespace gateway
