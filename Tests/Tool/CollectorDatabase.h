#pragma once

#include <gtest/gtest.h>
#include <sqlite3.h>

#include <string>

namespace kite::test {

/// Runs `sql` on the file as another process would; gives all values, a blank between two columns
/// and a line end behind each row.
inline std::string query(const std::string& file, const std::string& sql) {
  sqlite3* database = nullptr;
  EXPECT_EQ(sqlite3_open_v2(file.c_str(), &database, SQLITE_OPEN_READWRITE, nullptr), SQLITE_OK);
  std::string rows;
  const auto addRow = [](void* out, int columns, char** values, char**) {
    auto& text = *static_cast<std::string*>(out);
    for (int column = 0; column < columns; ++column) {
      text += std::string(column == 0 ? "" : " ") + (values[column] ? values[column] : "NULL");
    }
    text += '\n';
    return 0;
  };
  EXPECT_EQ(sqlite3_exec(database, sql.c_str(), addRow, &rows, nullptr), SQLITE_OK)
      << sqlite3_errmsg(database);
  sqlite3_close(database);
  return rows;
}

}  // namespace kite::test
