#include "Collector/Store/Connection.h"

namespace kite::tool {
namespace {

constexpr int untilBusy = 2000;  // milliseconds for another process that holds the file

}  // namespace

Connection::Connection(const std::string& path, Access access) {
  const int flags = access == Access::readOnly ? SQLITE_OPEN_READONLY : SQLITE_OPEN_READWRITE;
  if (sqlite3_open_v2(path.c_str(), &_database, flags, nullptr) != SQLITE_OK) {
    const std::string message = sqlite3_errmsg(_database);
    sqlite3_close(_database);
    throw StoreError(message);
  }
  sqlite3_busy_timeout(_database, untilBusy);
}

void Connection::execute(const char* sql) {
  if (sqlite3_exec(_database, sql, nullptr, nullptr, nullptr) != SQLITE_OK) {
    throw StoreError(sqlite3_errmsg(_database));
  }
}

}  // namespace kite::tool
