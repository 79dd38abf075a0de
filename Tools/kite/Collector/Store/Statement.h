#pragma once

#include "Collector/Store/Connection.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kite::tool {

/// Bytes that are bound as such.
struct Blob {
  std::string_view bytes;
};

/// One prepared statement. Every operation throws a `StoreError` when SQLite refuses it.
class Statement {
 public:
  Statement(Connection& connection, std::string_view sql);
  ~Statement();
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  /// Binds all parameters in order, dropping what was bound before. Texts must live until the last
  /// step.
  template <class... Values>
  Statement& with(const Values&... values) {
    reset();
    int index = 0;
    (bind(++index, values), ...);
    return *this;
  }

  /// Goes to the next row; false when there is none.
  bool step();
  /// Runs to the end.
  void run();
  /// Lets go of the rows that are left.
  void reset() { sqlite3_reset(_statement); }

  double real(int column) const;
  std::int64_t integer(int column) const;
  std::string text(int column) const;
  bool isNull(int column) const;

 private:
  void bind(int index, std::string_view text);
  void bind(int index, double number);
  void bind(int index, std::int64_t number);
  void bind(int index, const Blob& blob);
  template <class Value>
  void bind(int index, const std::optional<Value>& value) {
    if (value)
      bind(index, *value);
    else
      require(sqlite3_bind_null(_statement, index) == SQLITE_OK);
  }
  void require(bool condition) const;

  sqlite3* _database;
  sqlite3_stmt* _statement = nullptr;
};

/// Calls `visit` with each row while it returns true, and then lets go of the statement, so that
/// no scan outlives its visitor.
template <class Visit>
void forEachRow(Statement& statement, const Visit& visit) {
  const struct Guard {
    Statement& statement;
    ~Guard() { statement.reset(); }
  } guard{statement};
  while (statement.step() && visit(statement)) {
  }
}

}  // namespace kite::tool
