#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kite::bench {

/// What rows like those of a stored list cost SQLite itself, in a database with the same settings.
class RawRows {
 public:
  explicit RawRows(const std::filesystem::path& folder)
      : _database(open(folder / "rows.sqlite")),
        _begin(prepare("BEGIN IMMEDIATE")),
        _commit(prepare("COMMIT")),
        _insert(prepare("INSERT INTO list_rows VALUES(?,?,?,?)")),
        _remove(prepare("DELETE FROM list_rows WHERE place>=? AND place<?")) {}

  /// Appends at least so many rows, in a few transactions.
  void fill(std::int64_t count, std::span<const std::string> texts) {
    for (const auto end = _end + count; _end < end;) insert(texts);
  }
  /// Appends the texts, one row each, in one transaction.
  void insert(std::span<const std::string> texts) {
    run(_begin);
    for (const auto& text : texts) {
      constexpr std::string_view key = "kite_pending_events";
      sqlite3_bind_int64(_insert.get(), 1, _end++);
      sqlite3_bind_text64(_insert.get(), 2, key.data(), key.size(), SQLITE_STATIC, SQLITE_UTF8);
      sqlite3_bind_blob64(_insert.get(), 3, text.data(), text.size(), SQLITE_STATIC);
      sqlite3_bind_int64(_insert.get(), 4, 0x5EED);
      run(_insert);
    }
    run(_commit);
  }
  /// Deletes the oldest rows in one transaction.
  void removeFirst(std::int64_t count) {
    run(_begin);
    sqlite3_bind_int64(_remove.get(), 1, _first);
    sqlite3_bind_int64(_remove.get(), 2, _first += count);
    run(_remove);
    run(_commit);
  }

 private:
  struct Release {
    void operator()(sqlite3* database) const { sqlite3_close_v2(database); }
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  using Database = std::unique_ptr<sqlite3, Release>;
  using Statement = std::unique_ptr<sqlite3_stmt, Release>;

  static Database open(const std::filesystem::path& file) {
    sqlite3* handle = nullptr;
    const int code =
        sqlite3_open_v2(file.c_str(), &handle,
                        SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    Database database(handle);
    check(code);
    for (const auto* sql :
         {"PRAGMA page_size=8192", "PRAGMA journal_mode=WAL", "PRAGMA synchronous=NORMAL",
          "CREATE TABLE list_rows(place INTEGER PRIMARY KEY, key TEXT NOT NULL,"
          " bytes BLOB NOT NULL, crc INTEGER NOT NULL)"})
      check(sqlite3_exec(handle, sql, nullptr, nullptr, nullptr));
    return database;
  }
  Statement prepare(const char* sql) const {
    sqlite3_stmt* statement = nullptr;
    check(sqlite3_prepare_v3(_database.get(), sql, -1, SQLITE_PREPARE_PERSISTENT, &statement,
                             nullptr));
    return Statement(statement);
  }
  static void run(const Statement& statement) {
    const int code = sqlite3_step(statement.get());
    if (code != SQLITE_DONE) throw std::runtime_error(sqlite3_errstr(code));
    check(sqlite3_reset(statement.get()));
  }
  static void check(int code) {
    if (code != SQLITE_OK) throw std::runtime_error(sqlite3_errstr(code));
  }

  Database _database;
  Statement _begin, _commit, _insert, _remove;
  std::int64_t _first = 0;
  std::int64_t _end = 0;
};

}  // namespace kite::bench
