#include "Collector/Statement.h"

#include <string>

namespace kite::tool {

Statement::Statement(sqlite3* database, std::string_view sql) : _database(database) {
  require(sqlite3_prepare_v3(database, sql.data(), static_cast<int>(sql.size()),
                             SQLITE_PREPARE_PERSISTENT, &_statement, nullptr) == SQLITE_OK);
}

Statement::~Statement() { sqlite3_finalize(_statement); }

bool Statement::step() {
  const int status = sqlite3_step(_statement);
  if (status == SQLITE_ROW) return true;
  const std::string message = sqlite3_errmsg(_database);
  sqlite3_reset(_statement);
  if (status != SQLITE_DONE) throw DatabaseError(message);
  return false;
}

void Statement::run() {
  while (step()) {
  }
}

double Statement::real(int column) const { return sqlite3_column_double(_statement, column); }

std::int64_t Statement::integer(int column) const {
  return sqlite3_column_int64(_statement, column);
}

void Statement::bind(int index, std::string_view text) {
  require(sqlite3_bind_text64(_statement, index, text.data(), text.size(), SQLITE_STATIC,
                              SQLITE_UTF8) == SQLITE_OK);
}

void Statement::bind(int index, double number) {
  require(sqlite3_bind_double(_statement, index, number) == SQLITE_OK);
}

void Statement::bind(int index, std::int64_t number) {
  require(sqlite3_bind_int64(_statement, index, number) == SQLITE_OK);
}

void Statement::require(bool condition) const {
  if (!condition) throw DatabaseError(sqlite3_errmsg(_database));
}

}  // namespace kite::tool
