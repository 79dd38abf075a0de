#include "Collector/Store/Connection.h"

#include <fmt/format.h>

namespace kite::tool {
namespace {

constexpr int untilBusy = 2000;  // milliseconds for another process that holds the file

std::string immutableURI(const std::string& path) {
  std::string uri = path.starts_with('/') ? "file://" : "file:";
  for (const char letter : path) {
    const bool isPlain = letter != '%' && letter != '?' && letter != '#';
    uri += isPlain ? std::string(1, letter) : fmt::format("%{:02x}", static_cast<unsigned>(letter));
  }
  return uri + "?immutable=1";
}

}  // namespace

Connection::Connection(const std::string& path, Access access) {
  const bool isAtRest = access == Access::readOnlyAtRest;
  const int flags = (access == Access::readWrite ? SQLITE_OPEN_READWRITE : SQLITE_OPEN_READONLY) |
                    (isAtRest ? SQLITE_OPEN_URI : 0);
  const std::string name = isAtRest ? immutableURI(path) : path;
  if (sqlite3_open_v2(name.c_str(), &_database, flags, nullptr) != SQLITE_OK) {
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
