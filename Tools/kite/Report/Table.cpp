#include "Report/Table.h"

#include "Report/PrintedText.h"

#include <algorithm>

namespace kite::tool {
namespace {

std::string blanks(int count) { return std::string(static_cast<std::size_t>(count), ' '); }

}  // namespace

std::vector<int> Table::widths() const {
  std::vector<int> widths(_columns.size());
  for (const auto& row : _rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], columnsOf(row[i]));
  }
  return widths;
}

std::string Table::text() const {
  const auto width = widths();
  std::string text;
  for (const auto& row : _rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += _columns[i] == Column::bar ? " " : "  ";
      const std::string padding = blanks(width[i] - columnsOf(row[i]));
      line += _columns[i] == Column::number ? padding + row[i] : row[i] + padding;
    }
    text += line.substr(0, line.find_last_not_of(' ') + 1) + "\n";
  }
  return text;
}

}  // namespace kite::tool
