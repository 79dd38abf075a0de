#pragma once

#include <Kite/Platform/Larder.h>

#include "Linux/Storage/Carver.h"
#include "Linux/Storage/Database.h"

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite::Linux {

/// What a saved value is; kept in the file, so the numbers stay.
enum class ValueKind : std::int64_t { data = 1, list = 2, number = 3, dictionary = 4 };

struct SavedValue {
  ValueKind kind;
  std::string bytes;  ///< empty for a list, whose elements are rows
};

/// The tables of a store: one row per value and, of lists, one per element, each with a checksum.
/// One thread at a time.
///
/// The elements of all lists stand in one table in the order of their places. A place is the number
/// of a list and the ordinal within it, so that an element appended touches the last page alone.
class RowStore {
 public:
  struct Entry {
    std::string key;
    SavedValue value;
  };
  struct Entries {
    std::vector<Entry> undamaged;
    std::size_t damaged = 0;
  };

  enum class Durability { surviveCrash, survivePowerFailure };

  /// Takes an open database over; an empty one gets the tables. `damaged` when it is not a store.
  static Outcome open(std::unique_ptr<Database> database, Durability durability,
                      std::unique_ptr<RowStore>& store);
  static Outcome openForReading(std::unique_ptr<Database> database,
                                std::unique_ptr<RowStore>& store);

  /// Of a file that breaks off, what could be read until then.
  Outcome entries(Entries& entries);
  /// Begins the reader, perhaps twice. Gives the ordinals of damaged rows, which are left out.
  Outcome rows(std::string_view key, Larder::ListReader& reader,
               std::vector<std::uint64_t>& damaged);

  Outcome put(std::string_view key, const SavedValue& value);
  Outcome remove(std::string_view key);
  Outcome edit(std::string_view key, const Larder::ListEdit& edit);
  /// Takes over whatever can be made out in a damaged store; counts it.
  Outcome salvage(Carver& damaged, std::size_t& recovered);

  std::string message() const { return _database->message(); }

 private:
  explicit RowStore(std::unique_ptr<Database> database);

  Outcome findLists();
  Outcome readEntries(Entries& entries);
  Outcome readRows(std::string_view key, Larder::ListReader& reader,
                   std::vector<std::uint64_t>& damaged);
  template <class Body>
  Outcome change(Body body);
  std::int64_t numberFor(std::string_view key) const;
  void forgetList(std::string_view key);
  Outcome putValue(std::string_view key, const SavedValue& value);
  Outcome removeList(std::string_view key);
  Outcome removeRows(std::int64_t list, Larder::OrdinalRange range);
  Outcome edited(std::string_view key, const Larder::ListEdit& edit);
  Outcome insertRow(std::string_view key, std::uint64_t ordinal, std::string_view bytes);
  Outcome salvageEntry(Statement& insert, const CarvedRow& row);
  Outcome salvageListRow(Statement& insert, const CarvedRow& row);

  std::unique_ptr<Database> _database;
  Statement _putValue, _removeValue, _insertRow, _removeRows, _selectRows;
  std::map<std::string, std::int64_t, std::less<>>
      _lists;  // the numbers of those with sound rows, or edited
  std::string _scratch;
};

}  // namespace kite::Linux
