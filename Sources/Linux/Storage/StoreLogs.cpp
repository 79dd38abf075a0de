#include "Linux/Storage/StoreLogs.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

namespace kite::Linux {

namespace {

constexpr const char* stateName = "state";
constexpr std::size_t listNumberSize = 4;

bool isLog(std::string_view fileName) {
  return fileName == ValueLog::fileName || RowLog::isSegment(fileName);
}

SavedValue listValue(std::uint32_t number) {
  SavedValue value{ValueKind::list, {}};
  appendNumber(value.bytes, number, listNumberSize);
  return value;
}

std::uint64_t newStore(const System& system) {
  std::uint64_t halves[2];
  const auto uuid = system.randomUUID();
  static_assert(sizeof halves == sizeof uuid.bytes);
  std::memcpy(halves, uuid.bytes.data(), sizeof halves);
  return halves[0] ^ halves[1];
}

std::optional<std::string> beginningOf(Disk& disk, const std::string& name, std::size_t size) {
  const auto file = disk.open(name);
  return file ? file->read(0, size) : std::nullopt;
}

/// Whether a file without a readable head is the store's all the same. An empty one may be.
bool holdsRecords(Disk& disk, const std::string& name, std::uint64_t store) {
  const auto file = LogFile::open(disk, name);
  const auto bytes = file ? file->readAll() : std::nullopt;
  return !bytes || bytes->empty() || recordsOf(*bytes, store).next().has_value();
}

}  // namespace

bool StoreLogs::isPart(std::string_view fileName) {
  return isLog(fileName) || fileName == lockName || fileName == stateName || indexOf(fileName);
}

StoreLogs::Opened StoreLogs::own(std::shared_ptr<Disk> disk, const std::string& title,
                                 const System& system) {
  std::unique_ptr<StoreLogs> logs(new StoreLogs(std::move(disk), title, system));
  if (!logs->identify()) return Failure{logs->error()};
  if (logs->_known.store == 0) logs->_known.store = newStore(system);
  for (const auto& name : logs->_foreign) logs->setAside(name);
  if (!logs->loadValues()) return Failure{logs->error()};
  if (!logs->_values) logs->_values = ValueLog::make(*logs->_disk, logs->_known.store);
  if (!logs->_values) return Failure{logs->error()};
  // The rows, too, tell what the values have lost.
  if (logs->_damages.empty()) {
    logs->begin();
  } else if (!logs->loadRows()) {
    return Failure{logs->error()};
  }
  return logs;
}

StoreLogs::Opened StoreLogs::inspect(std::shared_ptr<Disk> disk, const std::string& title,
                                     const System& system) {
  // The owner may drop or replace a file between two looks at the folder.
  constexpr int looks = 5;
  for (int look = 1;; ++look) {
    std::unique_ptr<StoreLogs> logs(new StoreLogs(disk, title, system));
    auto rows = logs->identify() && logs->loadValues() ? logs->readRows() : std::nullopt;
    if (rows) {
      logs->_rows = std::move(rows->log);
      if (logs->_values) return logs;
      if (logs->_rows->keys().empty()) return Failure{std::string("there is no store")};
      logs->_values = ValueLog::none(*disk);
      return logs;
    }
    if (look == looks) return Failure{logs->error()};
  }
}

// Each file has a vote. Of a file that cannot be read nothing is known; it may be sound.
bool StoreLogs::identify() {
  const auto names = _disk->names();
  if (!names) return false;
  std::map<std::uint64_t, int> votes;
  std::map<std::string, std::optional<std::uint64_t>> stores;
  const auto vote = [&](std::uint64_t store) { ++votes[store]; };
  for (const auto& name : *names) {
    if (name == stateName) {
      const auto known = witnessIn(beginningOf(*_disk, name, Witness::size).value_or(""));
      if (known) vote((_known = *known).store);
    }
    if (indexOf(name)) _names.push_back(name);
    if (!isLog(name) && name != lockName) continue;
    const auto beginning = beginningOf(*_disk, name, Head::size);
    if (!beginning) return false;
    if (name == lockName) _lockHead = *beginning;
    const auto head = headOf(*beginning);
    if (head) vote(head->store);
    if (isLog(name)) stores[name] = head ? std::optional(head->store) : std::nullopt;
  }
  const auto most =
      std::ranges::max_element(votes, {}, [](const auto& candidate) { return candidate.second; });
  if (most != votes.end() && _known.store != most->first) _known = {.store = most->first};
  for (const auto& [name, store] : stores) {
    const bool isOurs = store ? *store == _known.store : holdsRecords(*_disk, name, _known.store);
    (isOurs ? _names : _foreign).push_back(name);
  }
  return true;
}

bool StoreLogs::loadValues() {
  for (const auto& name : _foreign) _damages.add(name, "belongs to another store");
  if (std::ranges::count(_names, ValueLog::fileName) == 0) {
    if (_known.lastValue > 0) _damages.add(ValueLog::fileName, "is missing");
    return true;
  }
  _values = ValueLog::load(*_disk, _known.store, _known.lastValue, _damages);
  if (!_values) return false;
  for (const auto& [key, value] : _values->values()) {
    if (value.kind == ValueKind::list && value.bytes.size() == listNumberSize)
      _listNumbers.emplace(key,
                           static_cast<std::uint32_t>(numberAt(value.bytes, 0, listNumberSize)));
  }
  return true;
}

std::optional<StoreLogs::Rows> StoreLogs::readRows() const {
  const auto tell = [print = _system.print, title = _title](std::size_t count) {
    print("[KITE] Damaged elements were dropped from a list in the " + title + ": " +
          std::to_string(count));
  };
  Rows rows{std::make_unique<RowLog>(_disk, _known.store, tell), {}};
  const RowLog::Known known{_known.lastEdit, _known.firstSegment, _listNumbers};
  if (!rows.log->load(_names, known, rows.damages)) return std::nullopt;
  return rows;
}

void StoreLogs::takeRows(Rows rows) {
  _rows = std::move(rows.log);
  _damages.add(rows.damages);
  begin();
}

bool StoreLogs::loadRows() {
  if (_rows) return true;
  auto rows = readRows();
  if (rows) takeRows(*std::move(rows));
  return _rows != nullptr;
}

// What is damaged is mended before the witness forgets what was there.
void StoreLogs::begin() {
  if (!_damages.empty()) {
    _values->rewrite();
    if (_rows) _rows->mend();
    _system.print("[KITE] The " + _title +
                  " is damaged, what could be read was kept: " + _damages.text());
    _damages = {};
  }
  std::string head;
  appendHead(head, {.store = _known.store, .lastEdit = 0});
  if (_lockHead != head) {
    const auto lock = _disk->open(lockName);
    if (lock && lock->write(0, head)) _lockHead = head;
  }
  if (!_state) _state = _disk->make(stateName);
  settle();
}

void StoreLogs::setAside(const std::string& name) {
  const auto newName = name + ".foreign-" + _system.randomUUID().text();
  if (_disk->rename(name, newName))
    _system.print("[KITE] " + name +
                  " belongs to no store or to another one: it was set aside as " + newName);
}

Witness StoreLogs::witness() const {
  return {.store = _known.store,
          .lastValue = _values->lastChange(),
          .lastEdit = _rows ? _rows->lastEdit() : _known.lastEdit,
          .firstSegment = _rows ? _rows->firstSegment() : _known.firstSegment};
}

// Were a segment gone before the witness knows, the next start would miss it.
void StoreLogs::settle() {
  if (const auto now = witness(); _state && _told != now) {
    std::string text;
    appendWitness(text, now);
    _state->write(0, text);
    _told = now;
  }
  if (!_rows || !_rows->hasDropped()) return;
  if (!_state || _state->sync()) _rows->removeDropped();
}

bool StoreLogs::settled(bool isDone) {
  if (isDone) settle();
  return isDone;
}

bool StoreLogs::put(std::string_view key, SavedValue value) {
  return settled(_values->put(key, std::move(value)));
}

bool StoreLogs::remove(std::string_view key) { return settled(_values->remove(key)); }

std::vector<std::string> StoreLogs::listKeys() const {
  if (_rows) return _rows->keys();
  std::vector<std::string> keys;
  for (const auto& [key, number] : _listNumbers) keys.push_back(key);
  return keys;
}

bool StoreLogs::isEmpty() const {
  const auto isSegment = [](const auto& name) { return RowLog::isSegment(name); };
  return _values->values().empty() && listKeys().empty() &&
         (_rows || std::ranges::none_of(_names, isSegment));
}

RowLog::Outcome StoreLogs::readList(std::string_view key, Larder::SavedList& list) {
  return _rows ? _rows->read(key, list) : RowLog::Outcome::noList;
}

// A list that replaces bytes counts once these are gone; for any other the value is a second
// witness.
RowLog::Outcome StoreLogs::edit(std::string_view key, const Larder::ListEdit& edit,
                                RowLog::Placed& placed) {
  if (!_rows) return RowLog::Outcome::failed;
  const auto outcome = _rows->edit(key, edit, placed);
  if (outcome != RowLog::Outcome::done) return outcome;
  if (edit.replacesAll) _values->put(key, listValue(_rows->number(key)));
  settle();
  return _values->holdsBytes(key) ? RowLog::Outcome::failed : outcome;
}

bool StoreLogs::endList(std::string_view key) {
  return !_rows || !_rows->holds(key) || settled(_rows->end(key));
}

std::vector<std::shared_ptr<LogFile>> StoreLogs::unsynced() {
  auto files = _rows ? _rows->unsynced() : std::vector<std::shared_ptr<LogFile>>();
  if (!_values->file()->isSynced()) files.push_back(_values->file());
  return files;
}

}  // namespace kite::Linux
