#include "Linux/Storage/Database.h"

#include "Linux/Storage/DiskAccess.h"
#include "Linux/Storage/PageFormat.h"

#include <sqlite3.h>

#include <chrono>
#include <thread>
#include <utility>

namespace kite::Linux {

namespace {

Outcome outcomeOf(int code) {
  switch (code & 0xFF) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
      return Outcome::done;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
      return Outcome::damaged;
    default:
      return Outcome::failed;
  }
}

// Readers beside the owner hold locks for moments only.
int waitForOthers(void*, int attempts) {
  constexpr int mostAttempts = 20;
  constexpr std::chrono::milliseconds pause{5};
  if (attempts == mostAttempts) return 0;
  std::this_thread::sleep_for(pause);
  return 1;
}

}  // namespace

void Statement::Finalizer::operator()(sqlite3_stmt* statement) const {
  sqlite3_finalize(statement);
}

Statement::Statement(sqlite3* database, const char* sql) : _database(database), _sql(sql) {
  prepared();
}

sqlite3_stmt* Statement::prepared() {
  if (_statement) return _statement.get();
  sqlite3_stmt* statement = nullptr;
  _code = sqlite3_prepare_v3(_database, _sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  _statement.reset(statement);
  return statement;
}

// A statement with a parameter missing must not run.
Statement& Statement::took(int bound) {
  if (_bound == SQLITE_OK) _bound = bound;
  return *this;
}

Statement& Statement::bind(int parameter, std::string_view text) {
  return took(sqlite3_bind_text64(prepared(), parameter + 1, text.data() ? text.data() : "",
                                  text.size(), SQLITE_STATIC, SQLITE_UTF8));
}

Statement& Statement::bindBytes(int parameter, std::string_view bytes) {
  return took(sqlite3_bind_blob64(prepared(), parameter + 1, bytes.data() ? bytes.data() : "",
                                  bytes.size(), SQLITE_STATIC));
}

Statement& Statement::bind(int parameter, std::int64_t number) {
  return took(sqlite3_bind_int64(prepared(), parameter + 1, number));
}

Outcome Statement::run() {
  const Rewinder rewinder{*this};
  step();
  return outcome();
}

bool Statement::step() {
  if (!prepared()) return false;
  _code = _bound == SQLITE_OK ? sqlite3_step(_statement.get()) : _bound;
  return _code == SQLITE_ROW;
}

Outcome Statement::outcome() const { return outcomeOf(_code); }

void Statement::rewind() {
  sqlite3_reset(_statement.get());
  _bound = SQLITE_OK;
}

std::string_view Statement::text(int column) const {
  const auto* bytes = static_cast<const char*>(sqlite3_column_blob(_statement.get(), column));
  const auto size = static_cast<std::size_t>(sqlite3_column_bytes(_statement.get(), column));
  return bytes ? std::string_view(bytes, size) : std::string_view();
}

std::int64_t Statement::number(int column) const {
  return sqlite3_column_int64(_statement.get(), column);
}

std::unique_ptr<Database> Database::open(const std::filesystem::path& file, Access access) {
  const int mode = access == Access::readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
  const auto name = file.empty() ? ":memory:" : file.string();
  sqlite3* handle = nullptr;
  const int code = sqlite3_open_v2(
      name.c_str(), &handle, mode | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_NOFOLLOW, diskAccessName());
  Handle owned(handle);
  if (code != SQLITE_OK) return nullptr;
  sqlite3_busy_handler(handle, waitForOthers, nullptr);
  std::unique_ptr<Database> database(new Database(std::move(owned)));
  database->refuseWrongSums(access == Access::readWrite);
  return database;
}

Outcome Database::execute(const char* sql) {
  return outcomeOf(sqlite3_exec(_handle.get(), sql, nullptr, nullptr, nullptr));
}

Outcome Database::number(const char* sql, std::int64_t& result) {
  return prepare(sql).forEachRow([&](const Statement& row) { result = row.number(0); });
}

Outcome Database::text(const char* sql, std::string& result) {
  return prepare(sql).forEachRow([&](const Statement& row) { result = row.text(0); });
}

std::string Database::message() const { return sqlite3_errmsg(_handle.get()); }

void Database::reserveForSums() {
  int size = pageSumSize;
  sqlite3_file_control(_handle.get(), nullptr, SQLITE_FCNTL_RESERVE_BYTES, &size);
}

void Database::refuseWrongSums(bool isRefused) {
  int value = isRefused ? 1 : 0;
  sqlite3_file_control(_handle.get(), nullptr, Linux::refuseWrongSums, &value);
  _refusesWrongSums = isRefused;
}

bool Database::hasChanged() const { return sqlite3_changes(_handle.get()) > 0; }

void Database::rollBack() {
  if (!sqlite3_get_autocommit(_handle.get())) execute("ROLLBACK");
}

void Database::Closer::operator()(sqlite3* database) const { sqlite3_close_v2(database); }

}  // namespace kite::Linux
