#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <stdexcept>
#include <string_view>

namespace kite::tool {

/// What SQLite said; stays inside the files that speak to it.
class DatabaseError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// One prepared statement. Every operation throws a `DatabaseError` when SQLite refuses it.
class Statement {
 public:
  Statement(sqlite3* database, std::string_view sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  /// Binds all parameters in order, dropping what was bound before. Texts must live until the last
  /// step.
  template <class... Values>
  Statement& with(const Values&... values) {
    sqlite3_reset(_statement);
    int index = 0;
    (bind(++index, values), ...);
    return *this;
  }

  /// Goes to the next row; false when there is none.
  bool step();
  /// Runs to the end.
  void run();

  double real(int column) const;
  std::int64_t integer(int column) const;

 private:
  void bind(int index, std::string_view text);
  void bind(int index, double number);
  void bind(int index, std::int64_t number);
  void require(bool condition) const;

  sqlite3* _database;
  sqlite3_stmt* _statement = nullptr;
};

}  // namespace kite::tool
