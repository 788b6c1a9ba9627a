/// What outlives the bridge: an SQLite database. Used on the bus thread only.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace gateway {

/// One prepared statement. Values are bound, then it is stepped through; it begins again with the
/// first bind() after its last row. What fails is logged and gives no row.
class Statement {
 public:
  Statement() = default;
  Statement(sqlite3* database, const char* sql);

  /// Bind parameter `index`, from 1 on. Texts must live until the statement has been stepped
  /// through.
  Statement& bind(int index, std::int64_t value);
  Statement& bind(int index, std::string_view value);

  /// Goes on to the next row; false when there is none.
  bool step();

  /// Steps through to the end. Returns false when it failed.
  bool run();

  /// The row's column `index`, from 0 on.
  std::int64_t number(int index) const;
  std::string text(int index) const;

 private:
  struct Finalizer {
    void operator()(sqlite3_stmt* prepared) const { sqlite3_finalize(prepared); }
  };
  std::unique_ptr<sqlite3_stmt, Finalizer> statement;
};

class Store {
 public:
  /// Opens or makes the database `file`; one in memory when it is empty. A file that is no
  /// database is set aside, so that the bridge works again. Returns false, with an error line,
  /// when there is none to be had.
  bool open(const std::string& file);

  /// A statement of the open database, which must outlive it.
  Statement prepare(const char* sql) const { return {database.get(), sql}; }

 private:
  int tryOpen(const std::string& file);

  struct Closer {
    void operator()(sqlite3* opened) const { sqlite3_close_v2(opened); }
  };
  std::unique_ptr<sqlite3, Closer> database;
};

}  // namespace gateway
