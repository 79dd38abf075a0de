#include "Linux/Storage/StoreLogs.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <utility>

namespace kite::Linux {

namespace {

constexpr std::size_t listNumberSize = 4;

SavedValue listValue(std::uint32_t number) {
  SavedValue value{ValueKind::list, {}};
  appendNumber(value.bytes, number, listNumberSize);
  return value;
}

bool isLog(const std::string& name) {
  return name == ValueLog::fileName || RowLog::isSegment(name);
}

std::uint64_t newStore(const System& system) {
  std::uint64_t halves[2];
  const auto uuid = system.randomUUID();
  static_assert(sizeof halves == sizeof uuid.bytes);
  std::memcpy(halves, uuid.bytes.data(), sizeof halves);
  return halves[0] ^ halves[1];
}

std::optional<std::string> beginningOf(Disk& disk, const std::string& name) {
  const auto file = disk.open(name);
  return file ? file->read(0, Head::size) : std::nullopt;
}

/// Whether a file without a readable head is the store's all the same. An empty one may be.
bool holdsRecords(Disk& disk, const std::string& name, std::uint64_t store) {
  const auto file = LogFile::open(disk, name);
  const auto bytes = file ? file->readAll() : std::nullopt;
  return !bytes || bytes->empty() || recordsOf(*bytes, store).next().has_value();
}

}  // namespace

StoreLogs::Opened StoreLogs::own(std::unique_ptr<Disk> disk, const std::string& title,
                                 const System& system) {
  std::unique_ptr<StoreLogs> logs(new StoreLogs(std::move(disk)));
  const auto names = logs->_disk->names();
  if (!names || !logs->identify(*names)) return Failure{logs->error()};
  if (logs->_known.store == 0) logs->_known.store = newStore(system);
  for (const auto& name : logs->_foreign) logs->setAside(name, system);
  if (!logs->load(*names)) return Failure{logs->error()};
  if (!logs->_values) logs->_values = ValueLog::make(*logs->_disk, logs->_known.store);
  if (!logs->_values) return Failure{logs->error()};
  if (!logs->_damages.empty()) {
    logs->_values->rewrite();
    logs->_rows->mend();
    system.print("[KITE] The " + title +
                 " is damaged, what could be read was kept: " + logs->_damages.text());
  }
  logs->begin();
  return logs;
}

StoreLogs::Opened StoreLogs::inspect(std::unique_ptr<Disk> disk) {
  // The owner may drop or replace a file between two looks at the folder.
  constexpr int looks = 5;
  for (int look = 1;; ++look) {
    std::unique_ptr<StoreLogs> logs(new StoreLogs(std::move(disk)));
    const auto names = logs->_disk->names();
    const bool isRead = names && logs->identify(*names) && logs->load(*names);
    if (isRead && logs->_values) return logs;
    if (isRead) return Failure{std::string("there is no store")};
    if (look == looks) return Failure{logs->error()};
    disk = std::move(logs->_disk);
  }
}

// Each file has a vote. Of a file that cannot be read nothing is known; it may be sound.
bool StoreLogs::identify(const std::vector<std::string>& names) {
  std::map<std::uint64_t, int> votes;
  std::map<std::string, std::optional<std::uint64_t>> stores;
  const auto vote = [&](std::uint64_t store) { ++votes[store]; };
  if (const auto known = Witness::read(*_disk)) {
    _known = *known;
    vote(known->store);
  }
  for (const auto& name : names) {
    if (!isLog(name) && name != lockName) continue;
    const auto beginning = beginningOf(*_disk, name);
    if (!beginning) return false;
    const auto head = headOf(*beginning);
    if (head) vote(head->store);
    if (isLog(name)) stores[name] = head ? std::optional(head->store) : std::nullopt;
  }
  const auto most =
      std::ranges::max_element(votes, {}, [](const auto& candidate) { return candidate.second; });
  if (most != votes.end() && _known.store != most->first) _known = {.store = most->first};
  for (const auto& [name, store] : stores) {
    const bool isOurs = store ? *store == _known.store : holdsRecords(*_disk, name, _known.store);
    if (!isOurs) _foreign.push_back(name);
  }
  return true;
}

bool StoreLogs::load(const std::vector<std::string>& names) {
  auto ours = names;
  std::erase_if(ours, [&](const auto& name) { return std::ranges::count(_foreign, name) > 0; });
  for (const auto& name : _foreign) _damages.add(name, "belongs to another store");
  RowLog::Known known{.lastEdit = _known.lastEdit, .firstSegment = _known.firstSegment};
  if (std::ranges::count(ours, ValueLog::fileName) > 0) {
    _values = ValueLog::load(*_disk, _known.store, _known.lastValue, _damages);
    if (!_values) return false;
    const bool isRead = _values->readAll([&](std::string_view key, const SavedValue& value) {
      if (value.kind == ValueKind::list && value.bytes.size() == listNumberSize)
        known.numbers.emplace(key, numberAt(value.bytes, 0, listNumberSize));
    });
    if (!isRead) return false;
  } else if (_known.lastValue > 0) {
    _damages.add(ValueLog::fileName, "is missing");
  }
  _rows = std::make_unique<RowLog>(*_disk, _known.store);
  return _rows->load(ours, known, _damages);
}

void StoreLogs::begin() {
  std::string head;
  appendHead(head, {.store = _known.store, .lastEdit = 0});
  if (const auto lock = _disk->open(lockName); lock && beginningOf(*_disk, lockName) != head)
    lock->write(0, head);
  _known = state();
  _witness = Witness::make(*_disk, _known);
  _rows->removeDropped();
}

void StoreLogs::setAside(const std::string& name, const System& system) {
  const auto newName = name + ".foreign-" + system.randomUUID().text();
  if (_disk->rename(name, newName))
    system.print("[KITE] " + name + " belongs to no store or to another one: it was set aside as " +
                 newName);
}

Witness::State StoreLogs::state() const {
  return {.store = _known.store,
          .lastValue = _values->lastChange(),
          .lastEdit = _rows->lastEdit(),
          .firstSegment = _rows->firstSegment()};
}

void StoreLogs::settle() {
  if (_witness) _witness->set(state());
  _rows->removeDropped();
}

bool StoreLogs::put(std::string_view key, const SavedValue& value) {
  const bool isDone = _values->put(key, value);
  if (isDone) settle();
  return isDone;
}

bool StoreLogs::remove(std::string_view key) {
  const bool isDone = _values->remove(key);
  if (isDone) settle();
  return isDone;
}

RowLog::Outcome StoreLogs::readList(std::string_view key, Larder::ListReader& reader,
                                    std::size_t& damaged) {
  return _rows->read(key, reader, damaged);
}

// A list that replaces bytes counts once these are gone; for any other the note is a second
// witness.
RowLog::Outcome StoreLogs::edit(std::string_view key, const Larder::ListEdit& edit) {
  const auto outcome = _rows->edit(key, edit);
  if (outcome != RowLog::Outcome::done) return outcome;
  if (edit.replacesAll) _values->put(key, listValue(_rows->number(key)));
  settle();
  return _values->holdsBytes(key) ? RowLog::Outcome::failed : outcome;
}

bool StoreLogs::endList(std::string_view key) {
  if (!_rows->holds(key)) return true;
  const bool isDone = _rows->end(key);
  settle();
  return isDone;
}

void StoreLogs::mendLists() {
  _rows->mend();
  settle();
}

std::vector<std::shared_ptr<LogFile>> StoreLogs::takeUnsynced() {
  auto files = _rows->takeUnsynced();
  files.push_back(_values->file());
  return files;
}

}  // namespace kite::Linux
