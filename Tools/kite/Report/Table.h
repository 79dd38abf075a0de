#pragma once

#include <string>
#include <vector>

namespace kite::tool {

/// Rows of printable texts in columns as wide as they need to be.
class Table {
 public:
  /// A bar stands close to the number before it.
  enum class Column { text, number, bar };

  explicit Table(std::vector<Column> columns) : _columns(std::move(columns)) {}

  /// One text for each column.
  void add(std::vector<std::string> row) { _rows.push_back(std::move(row)); }
  /// One line for each row.
  std::string text() const;

 private:
  std::vector<int> widths() const;

  std::vector<Column> _columns;
  std::vector<std::vector<std::string>> _rows;
};

}  // namespace kite::tool
