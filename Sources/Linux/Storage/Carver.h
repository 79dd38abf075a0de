#pragma once

#include "Linux/Storage/CarvedRow.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace kite::Linux {

/// The rows that can be made out in the bytes of a damaged store.
///
/// SQLite's tables are trees, and its log is a chain: one byte of a page's header, of the schema or
/// of the log decides about many rows. But every row says by a checksum what it is, so that it can
/// be found without any of them, in pages that were freed, too.
class Carver {
 public:
  using Body = std::function<void(const CarvedRow& row)>;

  /// The bytes of the database file and of its log, which must outlive the carver.
  Carver(std::string_view file, std::string_view log);

  /// Hands over what has the form of a row. Of several rows in one place, the newest come first;
  /// one row may come several times.
  void forEachRow(const Body& body);

 private:
  void takeFile(std::string_view file);
  void takeLog(std::string_view log);
  void orderPages();
  std::set<std::uint32_t> freePages() const;

  void visitCells(std::string_view page, const Body& body);
  void visitEveryByte(std::string_view page, const Body& body);
  void visit(std::string_view page, std::size_t place, bool areEntriesWanted, const Body& body);
  std::optional<std::string> gather(std::string_view rest, std::size_t size);

  std::map<std::uint32_t, std::string_view> _pages;  // the newest, by their numbers from 1
  std::vector<std::string_view> _damagedPages;       // of the log, newest first
  std::vector<std::string_view> _order;
  std::uint64_t _size;
  std::uint64_t _allowance;
};

}  // namespace kite::Linux
