#include "Linux/Storage/RowStore.h"

#include "Linux/Storage/DiskAccess.h"
#include "Linux/Storage/PageFormat.h"

#include <libdeflate.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace kite::Linux {

namespace {

constexpr const char* createEntries =
    "CREATE TABLE entries(key TEXT PRIMARY KEY, kind INTEGER NOT NULL, bytes BLOB NOT NULL,"
    " crc INTEGER NOT NULL)";
constexpr const char* createListRows =
    "CREATE TABLE list_rows(place INTEGER PRIMARY KEY, key TEXT NOT NULL, bytes BLOB NOT NULL,"
    " crc INTEGER NOT NULL)";
constexpr std::int64_t applicationID = 1265202277;  // "Kite"
constexpr std::int64_t formatVersion = 1;

constexpr int ordinalBits = 40;
constexpr std::uint64_t ordinalEnd = std::uint64_t{1} << ordinalBits;
constexpr std::int64_t listEnd = 1 << 20;
constexpr Larder::OrdinalRange allOrdinals{0, ordinalEnd};

std::int64_t placeOf(std::int64_t list, std::uint64_t ordinal) {
  return (list << ordinalBits) + static_cast<std::int64_t>(std::min(ordinal, ordinalEnd));
}
std::int64_t listAt(std::int64_t place) { return place >> ordinalBits; }
std::uint64_t ordinalAt(std::int64_t place) {
  return static_cast<std::uint64_t>(place) % ordinalEnd;
}

// Over the key and the place as well, so that bytes in the wrong row are noticed.
std::int64_t checksum(std::string_view key, std::int64_t place, std::string_view bytes) {
  auto crc = libdeflate_crc32(0, key.data(), key.size());
  crc = libdeflate_crc32(crc, &place, sizeof place);
  if (!bytes.empty()) crc = libdeflate_crc32(crc, bytes.data(), bytes.size());
  return static_cast<std::int64_t>(crc);
}

Outcome worse(Outcome first, Outcome second) { return first == Outcome::done ? second : first; }

std::string pragma(const char* name, std::int64_t value) {
  return std::string("PRAGMA ") + name + '=' + std::to_string(value);
}

Outcome executeAll(Database& database, const std::vector<std::string>& statements) {
  auto outcome = Outcome::done;
  for (const auto& statement : statements)
    if (outcome == Outcome::done) outcome = database.execute(statement.c_str());
  return outcome;
}

Outcome createTables(Database& database) {
  database.reserveForSums();
  const auto outcome =
      executeAll(database, {pragma("page_size", pageSize), "PRAGMA journal_mode=WAL"});
  if (outcome != Outcome::done) return outcome;
  return database.transaction([&] {
    return executeAll(database,
                      {createEntries, createListRows, pragma("application_id", applicationID),
                       pragma("user_version", formatVersion)});
  });
}

struct Identity {
  std::int64_t application = 0;
  std::int64_t version = 0;
  std::int64_t tables = 0;
  std::string schema;
  std::string encoding;

  bool isStore() const {
    return application == applicationID && version == formatVersion && encoding == "UTF-8" &&
           schema == std::string(createEntries) + ';' + createListRows;
  }
  bool isEmptyFile() const { return application == 0 && version == 0 && tables == 0; }
};

Outcome identify(Database& database, Identity& identity) {
  auto outcome = database.number("SELECT count(*) FROM sqlite_schema", identity.tables);
  outcome = worse(outcome, database.number("PRAGMA application_id", identity.application));
  outcome = worse(outcome, database.number("PRAGMA user_version", identity.version));
  outcome = worse(outcome, database.text("PRAGMA encoding", identity.encoding));
  return worse(outcome,
               database.text("SELECT group_concat(sql, ';') FROM sqlite_schema", identity.schema));
}

Outcome checkPages(Database& database) {
  std::string finding;
  const auto failedBefore = failedReads();
  const auto outcome = database.text("PRAGMA quick_check(1)", finding);
  database.execute("PRAGMA shrink_memory");  // which now holds pages that nobody asked for
  if (outcome != Outcome::done || finding == "ok") return outcome;
  // It finds fault with a page that cannot be read, too.
  return failedReads() == failedBefore ? Outcome::damaged : Outcome::failed;
}

// Whether to go on over pages with wrong sums. One may hide rows without any error; but when SQLite
// finds nothing wrong with the pages and the way they hang together, at most its own rows are
// damaged.
bool mayAcceptWrongSums(Database& database, Outcome& outcome) {
  if (!database.refusesWrongSums()) return false;
  database.refuseWrongSums(false);
  outcome = checkPages(database);
  if (outcome == Outcome::failed) database.refuseWrongSums(true);
  return outcome == Outcome::done;
}

template <class Work>
Outcome soundly(Database& database, Work work) {
  Outcome outcome;
  do outcome = work();
  while (outcome == Outcome::damaged && mayAcceptWrongSums(database, outcome));
  return outcome;
}

Outcome identifyOrCreate(Database& database) {
  Identity identity;
  const auto outcome = identify(database, identity);
  if (outcome != Outcome::done) return outcome;
  if (identity.isEmptyFile()) return createTables(database);
  return identity.isStore() ? Outcome::done : Outcome::damaged;
}

}  // namespace

Outcome RowStore::open(std::unique_ptr<Database> database, Durability durability,
                       std::unique_ptr<RowStore>& store) {
  auto outcome = soundly(*database, [&] { return identifyOrCreate(*database); });
  if (outcome != Outcome::done) return outcome;
  database->execute(durability == Durability::surviveCrash ? "PRAGMA synchronous=NORMAL"
                                                           : "PRAGMA synchronous=FULL");
  // A page that a transaction writes twice spoils sums in the log until the commit, and so a
  // process that is killed meanwhile leaves a store that looks damaged.
  database->execute("PRAGMA cache_spill=OFF");
  std::unique_ptr<RowStore> opened(new RowStore(std::move(database)));
  outcome = soundly(*opened->_database, [&] { return opened->findLists(); });
  if (outcome == Outcome::done) store = std::move(opened);
  return outcome;
}

Outcome RowStore::openForReading(std::unique_ptr<Database> database,
                                 std::unique_ptr<RowStore>& store) {
  Identity identity;
  const auto outcome = identify(*database, identity);
  if (outcome != Outcome::done) return outcome;
  if (!identity.isStore()) return Outcome::damaged;
  store.reset(new RowStore(std::move(database)));
  store->findLists();  // as far as they can be read
  return Outcome::done;
}

RowStore::RowStore(std::unique_ptr<Database> database)
    : _database(std::move(database)),
      _putValue(_database->prepare("INSERT INTO entries VALUES(?,?,?,?) ON CONFLICT(key) DO UPDATE "
                                   "SET kind=excluded.kind, bytes=excluded.bytes, "
                                   "crc=excluded.crc WHERE kind<>2 OR excluded.kind<>2")),
      _removeValue(_database->prepare("DELETE FROM entries WHERE key=?")),
      _insertRow(_database->prepare("INSERT INTO list_rows VALUES(?,?,?,?)")),
      _removeRows(_database->prepare("DELETE FROM list_rows WHERE place>=? AND place<?")),
      _selectRows(_database->prepare("SELECT place, key, bytes, crc FROM list_rows WHERE place>=? "
                                     "ORDER BY place")) {}

// The rows tell which lists there are, whatever befell the entries.
Outcome RowStore::findLists() {
  auto select = _database->prepare(
      "SELECT place, key, bytes, crc FROM list_rows WHERE place>=? ORDER BY place LIMIT 1");
  auto outcome = Outcome::done;
  for (std::int64_t from = 0, seen = -1;
       outcome == Outcome::done && seen != from && listAt(from) < listEnd;) {
    seen = from;
    outcome = select.bind(0, from).forEachRow([&](const Statement& row) {
      const auto place = row.number(0);
      from = place + 1;
      if (row.number(3) != checksum(row.text(1), place, row.text(2))) return;
      _lists.emplace(row.text(1), listAt(place));
      from = placeOf(listAt(place) + 1, 0);
    });
  }
  return outcome;
}

std::int64_t RowStore::numberFor(std::string_view key) const {
  const auto found = _lists.find(key);
  if (found != _lists.end()) return found->second;
  std::int64_t unused = 0;
  for (const auto& [other, number] : _lists) unused = std::max(unused, number + 1);
  return unused;
}

Outcome RowStore::entries(Entries& entries) {
  return soundly(*_database, [&] {
    entries = {};
    return readEntries(entries);
  });
}

Outcome RowStore::readEntries(Entries& entries) {
  auto listsWithoutEntry = _lists;
  auto select = _database->prepare("SELECT key, kind, bytes, crc FROM entries");
  const auto outcome = select.forEachRow([&](const Statement& row) {
    const auto kind = row.number(1);
    const bool isList = kind == static_cast<std::int64_t>(ValueKind::list);
    if (!isList && row.number(3) != checksum(row.text(0), kind, row.text(2))) {
      ++entries.damaged;
      return;
    }
    entries.undamaged.push_back(
        {std::string(row.text(0)), {static_cast<ValueKind>(kind), std::string(row.text(2))}});
    listsWithoutEntry.erase(entries.undamaged.back().key);
  });
  for (const auto& [key, number] : listsWithoutEntry)
    entries.undamaged.push_back({key, {ValueKind::list, ""}});
  return outcome;
}

Outcome RowStore::rows(std::string_view key, Larder::ListReader& reader,
                       std::vector<std::uint64_t>& damaged) {
  return soundly(*_database, [&] {
    damaged.clear();
    reader.begin();
    return readRows(key, reader, damaged);
  });
}

// To the end of the table: a damaged place can be beyond the list's, with sound rows behind it.
Outcome RowStore::readRows(std::string_view key, Larder::ListReader& reader,
                           std::vector<std::uint64_t>& damaged) {
  if (!_lists.contains(key)) findLists();
  const auto list = numberFor(key);
  const bool areVouchedFor = _database->refusesWrongSums();  // by the sums of their pages
  return _selectRows.bind(0, placeOf(list, 0)).forEachRow([&](const Statement& row) {
    const auto place = row.number(0);
    if (listAt(place) != list) return;
    const auto bytes = row.text(2);
    if (row.text(1) == key && (areVouchedFor || row.number(3) == checksum(key, place, bytes))) {
      reader.take(ordinalAt(place), bytes);
    } else {
      damaged.push_back(ordinalAt(place));
    }
  });
}

template <class Body>
Outcome RowStore::change(Body body) {
  return soundly(*_database, [&] { return _database->transaction(body); });
}

Outcome RowStore::put(std::string_view key, const SavedValue& value) {
  const auto outcome = change([&] { return worse(removeList(key), putValue(key, value)); });
  if (outcome == Outcome::done) forgetList(key);
  return outcome;
}

Outcome RowStore::putValue(std::string_view key, const SavedValue& value) {
  const auto kind = static_cast<std::int64_t>(value.kind);
  return _putValue.bind(0, key)
      .bind(1, kind)
      .bindBytes(2, value.bytes)
      .bind(3, checksum(key, kind, value.bytes))
      .run();
}

Outcome RowStore::remove(std::string_view key) {
  const auto outcome =
      change([&] { return worse(removeList(key), _removeValue.bind(0, key).run()); });
  if (outcome == Outcome::done) forgetList(key);
  return outcome;
}

void RowStore::forgetList(std::string_view key) {
  if (const auto found = _lists.find(key); found != _lists.end()) _lists.erase(found);
}

Outcome RowStore::removeList(std::string_view key) {
  const auto found = _lists.find(key);
  return found == _lists.end() ? Outcome::done : removeRows(found->second, allOrdinals);
}

Outcome RowStore::removeRows(std::int64_t list, Larder::OrdinalRange range) {
  return _removeRows.bind(0, placeOf(list, range.first)).bind(1, placeOf(list, range.end)).run();
}

Outcome RowStore::edit(std::string_view key, const Larder::ListEdit& edit) {
  // Made before the file changes: after that nothing may go wrong.
  decltype(_lists) known;
  if (!_lists.contains(key)) known.emplace(key, numberFor(key));
  const auto outcome = change([&] { return edited(key, edit); });
  if (outcome == Outcome::done) _lists.merge(known);
  return outcome;
}

Outcome RowStore::edited(std::string_view key, const Larder::ListEdit& edit) {
  // Of a list that is not known yet, damaged rows may be left at its places.
  const auto list = numberFor(key);
  auto outcome = Outcome::done;
  if (!_lists.contains(key)) outcome = putValue(key, {ValueKind::list, ""});
  if (edit.replacesAll) outcome = worse(outcome, removeRows(list, allOrdinals));
  for (const auto& range : edit.removed) {
    if (outcome != Outcome::done) return outcome;
    outcome = removeRows(list, range);
  }
  for (const auto& row : edit.appended) {
    if (outcome != Outcome::done) return outcome;
    _scratch.clear();
    row.segment->appendTo(_scratch);
    outcome = insertRow(key, row.ordinal, _scratch);
  }
  return outcome;
}

Outcome RowStore::insertRow(std::string_view key, std::uint64_t ordinal, std::string_view bytes) {
  if (ordinal >= ordinalEnd) return Outcome::failed;
  const auto place = placeOf(numberFor(key), ordinal);
  return _insertRow.bind(0, place)
      .bind(1, key)
      .bindBytes(2, bytes)
      .bind(3, checksum(key, place, bytes))
      .run();
}

Outcome RowStore::salvage(Carver& damaged, std::size_t& recovered) {
  recovered = 0;
  auto insertEntry = _database->prepare("INSERT OR IGNORE INTO entries VALUES(?,?,?,?)");
  auto insertListRow = _database->prepare("INSERT OR IGNORE INTO list_rows VALUES(?,?,?,?)");
  return _database->transaction([&] {
    auto outcome = Outcome::done;
    damaged.forEachRow([&](const CarvedRow& row) {
      if (outcome != Outcome::done || row.crc != checksum(row.key, row.number, row.bytes)) return;
      outcome = row.isListRow ? salvageListRow(insertListRow, row) : salvageEntry(insertEntry, row);
      if (_database->hasChanged()) ++recovered;
    });
    return outcome;
  });
}

Outcome RowStore::salvageEntry(Statement& insert, const CarvedRow& row) {
  return insert.bind(0, row.key).bind(1, row.number).bindBytes(2, row.bytes).bind(3, row.crc).run();
}

// Rows of a list that had another number once were removed with it.
Outcome RowStore::salvageListRow(Statement& insert, const CarvedRow& row) {
  const auto list = listAt(row.number);
  if (list < 0 || list >= listEnd) return Outcome::done;
  const auto [known, isNew] = _lists.emplace(row.key, list);
  if (known->second != list) return Outcome::done;
  const auto outcome = isNew ? putValue(row.key, {ValueKind::list, ""}) : Outcome::done;
  insert.bind(0, row.number).bind(1, row.key).bindBytes(2, row.bytes).bind(3, row.crc);
  return worse(outcome, insert.run());
}

}  // namespace kite::Linux
