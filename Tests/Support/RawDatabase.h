#pragma once

#include <sqlite3.h>

#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>

namespace kite::test {

/// A second hand on a database file, for looking behind a store's back.
class RawDatabase {
 public:
  explicit RawDatabase(const std::filesystem::path& file) {
    if (sqlite3_open(file.c_str(), &_handle) != SQLITE_OK)
      throw std::runtime_error("cannot open " + file.string());
    sqlite3_busy_timeout(_handle, 5000);
  }
  ~RawDatabase() { sqlite3_close(_handle); }
  RawDatabase(const RawDatabase&) = delete;
  RawDatabase& operator=(const RawDatabase&) = delete;

  /// Leaves so many bytes at the end of each page alone; before there are any.
  void reserve(int bytes) {
    sqlite3_file_control(_handle, "main", SQLITE_FCNTL_RESERVE_BYTES, &bytes);
  }
  void execute(const std::string& sql) {
    if (sqlite3_exec(_handle, sql.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK)
      throw std::runtime_error(sqlite3_errmsg(_handle));
  }
  /// The first column of the first row; "" when there is none.
  std::string value(const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(_handle, sql.c_str(), -1, &statement, nullptr) != SQLITE_OK)
      throw std::runtime_error(sqlite3_errmsg(_handle));
    std::string result;
    if (sqlite3_step(statement) == SQLITE_ROW && sqlite3_column_bytes(statement, 0) > 0)
      result.assign(static_cast<const char*>(sqlite3_column_blob(statement, 0)),
                    static_cast<std::size_t>(sqlite3_column_bytes(statement, 0)));
    sqlite3_finalize(statement);
    return result;
  }

 private:
  sqlite3* _handle = nullptr;
};

inline std::string hexadecimalBlob(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text = "x'";
  for (const char byte : bytes) {
    text += digits[static_cast<unsigned char>(byte) >> 4];
    text += digits[static_cast<unsigned char>(byte) & 0xF];
  }
  return text + "'";
}

}  // namespace kite::test
