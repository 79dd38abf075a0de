#include "Collector/Store/Statement.h"

namespace kite::tool {

Statement::Statement(Connection& connection, std::string_view sql) : _database(connection.get()) {
  require(sqlite3_prepare_v3(_database, sql.data(), static_cast<int>(sql.size()),
                             SQLITE_PREPARE_PERSISTENT, &_statement, nullptr) == SQLITE_OK);
}

Statement::~Statement() { sqlite3_finalize(_statement); }

bool Statement::step() {
  const int status = sqlite3_step(_statement);
  if (status == SQLITE_ROW) return true;
  const std::string message = sqlite3_errmsg(_database);
  sqlite3_reset(_statement);
  if (status != SQLITE_DONE) throw StoreError(message);
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

std::string Statement::text(int column) const {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(_statement, column));
  return {bytes, bytes ? static_cast<std::size_t>(sqlite3_column_bytes(_statement, column)) : 0};
}

bool Statement::isNull(int column) const {
  return sqlite3_column_type(_statement, column) == SQLITE_NULL;
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

void Statement::bind(int index, const Blob& blob) {
  require(sqlite3_bind_blob64(_statement, index, blob.bytes.data(), blob.bytes.size(),
                              SQLITE_TRANSIENT) == SQLITE_OK);
}

void Statement::require(bool condition) const {
  if (!condition) throw StoreError(sqlite3_errmsg(_database));
}

}  // namespace kite::tool
