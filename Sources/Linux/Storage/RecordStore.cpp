#include "Linux/Storage/RecordStore.h"

#include "Base/CatchingBadAlloc.h"
#include "Linux/Storage/FileSizeSignal.h"
#include "Linux/Storage/MasterKeyFile.h"

#include <unistd.h>

#include <utility>

namespace kite::Linux {

using Larder::EditOutcome;
using Larder::EditResult;

std::unique_ptr<RecordStore> RecordStore::open(const std::filesystem::path& folder,
                                               const StoreName& name, const System& system) {
  const WithoutFileSizeSignal quiet;
  auto opened = StoreLogs::own(folder, name, system);
  std::string trouble = opened ? "" : opened.error();
  Logs logs = opened ? *std::move(opened) : nullptr;
  auto key = name.isSecret && logs ? readOrMakeMasterKey(*logs->folder(), system) : nullptr;
  if (name.isSecret && logs && !key) {
    trouble = "it has no key";
    logs = nullptr;
  }
  if (name.isSecret && !key) key = MasterKey::random();
  if (!logs)
    system.print("[KITE] The " + name.title + " keeps its values in memory only: " + trouble);
  return std::make_unique<RecordStore>(folder, name, std::move(logs), std::move(key), system);
}

Result<std::unique_ptr<RecordStore>, std::string> RecordStore::inspect(
    const std::filesystem::path& folder, const StoreName& name, bool forWriting) {
  const auto& system = System::live();
  auto logs = forWriting ? StoreLogs::own(folder, name, system) : StoreLogs::inspect(folder, name);
  if (!logs) return Failure{logs.error()};
  const auto& place = *(*logs)->folder();
  Key key;
  if (name.isSecret) {
    key = forWriting ? readOrMakeMasterKey(place, system) : readMasterKey(place);
    if (!key) return Failure{folder.string() + " holds no key to the secrets"};
  }
  return std::make_unique<RecordStore>(forWriting ? folder : "", name, *std::move(logs),
                                       std::move(key), system);
}

RecordStore::RecordStore(std::filesystem::path path, StoreName name, Logs logs, Key key,
                         System system)
    : _name(std::move(name)),
      _key(std::move(key)),
      _system(std::move(system)),
      _process(::getpid()),
      _path(std::move(path)),
      _logs(std::move(logs)),
      _trouble(_system, _name.title) {
  const WithoutFileSizeSignal quiet;
  if (_logs) {
    load();
  } else {
    _trouble.wasTold();  // by whoever has tried to open it
  }
}

bool RecordStore::isInChild() const { return _process != ::getpid(); }

std::optional<RecordStore::Value> RecordStore::decoded(std::string_view key,
                                                       const SavedValue& saved) const {
  if (saved.kind < ValueKind::data || saved.kind > ValueKind::dictionary) return std::nullopt;
  if (_name.isSecret && (!_key || saved.kind != ValueKind::data)) return std::nullopt;
  if (saved.kind == ValueKind::number && saved.bytes.size() != sizeof(double)) return std::nullopt;
  auto bytes = _name.isSecret ? unseal(*_key, key, saved.bytes) : std::optional(saved.bytes);
  if (!bytes) return std::nullopt;
  return Value{saved.kind, std::make_shared<const Larder::StoredValue>(Data{*std::move(bytes)})};
}

std::optional<SavedValue> RecordStore::encoded(std::string_view key, const Value& value) const {
  const auto& bytes = value.bytes->data().bytes;
  if (!_name.isSecret) return SavedValue{value.kind, bytes};
  auto sealed = _key ? seal(*_key, key, bytes) : std::nullopt;
  return sealed ? std::optional(SavedValue{value.kind, *std::move(sealed)}) : std::nullopt;
}

void RecordStore::load() {
  std::size_t damaged = 0;
  for (const auto& [key, saved] : _logs->values()) {
    if (saved.kind == ValueKind::list) continue;
    if (auto value = decoded(key, saved)) {
      _image.emplace(key, *std::move(value));
    } else {
      ++damaged;
    }
  }
  learnLists();
  if (damaged != 0)
    _system.print("[KITE] Damaged values in the " + _name.title + ": " + std::to_string(damaged));
}

// Not under the lock: who writes a value meanwhile does not wait for it.
bool RecordStore::loadRows(Writing& writing) {
  while (_logs && !_logs->hasRows()) {
    const auto logs = _logs;
    writing.unlock();
    auto rows = logs->readRows();
    writing.lock();
    if (logs != _logs || logs->hasRows()) continue;
    if (!rows) return leave(), false;
    logs->takeRows(*std::move(rows));
    learnLists();
  }
  return _logs != nullptr;
}

// A list under a key that has a value was about to be replaced by it, or the other way round.
void RecordStore::learnLists() {
  const std::scoped_lock guard(_imageMutex);
  for (auto& key : _logs->listKeys()) {
    const auto found = _image.find(key);
    if (found == _image.end()) {
      _image.emplace(std::move(key), Value{ValueKind::list, nullptr});
    } else if (found->second.kind != ValueKind::list && isWritable()) {
      _logs->endList(key);
    }
  }
}

// What it holds cannot be read this time, and must not be written over by what is known without it.
void RecordStore::leave() {
  if (!isWritable()) return;
  _trouble.begins(_logs->error());
  _logs = nullptr;
  _store = 0;
}

std::optional<RecordStore::Value> RecordStore::find(std::string_view key) const {
  const std::scoped_lock guard(_imageMutex);
  const auto found = _image.find(key);
  return found == _image.end() ? std::nullopt : std::optional(found->second);
}

std::map<std::string, ValueKind> RecordStore::kinds() const {
  const std::scoped_lock guard(_imageMutex);
  std::map<std::string, ValueKind> kinds;
  for (const auto& [key, value] : _image) kinds.emplace(key, value.kind);
  return kinds;
}

bool RecordStore::holdsList(std::string_view key) const {
  const auto value = find(key);
  return value && value->kind == ValueKind::list;
}

std::optional<Larder::SavedList> RecordStore::readList(std::string_view key) {
  if (isInChild()) return std::nullopt;
  const WithoutFileSizeSignal quiet;
  Writing writing(_writing);
  if (!loadRows(writing) || !holdsList(key)) return std::nullopt;
  Larder::SavedList list;
  const auto outcome = _logs->readList(key, list);
  if (outcome == RowLog::Outcome::failed) leave();
  return outcome == RowLog::Outcome::done ? std::optional(std::move(list)) : std::nullopt;
}

template <class Change>
void RecordStore::changeImage(Change change) {
  const std::scoped_lock guard(_imageMutex);
  change(_image);
  _revision.fetch_add(1, std::memory_order_release);
}

void RecordStore::set(std::string_view key, ValueKind kind, Data data) {
  change(key, Value{kind, std::make_shared<const Larder::StoredValue>(std::move(data))});
}

void RecordStore::remove(std::string_view key) { change(key, std::nullopt); }

void RecordStore::change(std::string_view key, std::optional<Value> value) {
  if (isInChild()) return;
  const WithoutFileSizeSignal quiet;
  Writing writing(_writing);
  if (holdsList(key)) loadRows(writing);
  if (!value && !find(key)) return;
  _unsaved.emplace(key);
  changeImage([&](Image& image) {
    if (value) {
      image.insert_or_assign(std::string(key), *std::move(value));
    } else {
      image.erase(image.find(key));
    }
  });
  save();
}

void RecordStore::save() {
  comeBack();
  if (!isWritable() || _unsaved.empty()) return;
  bool isSaved = true;
  while (isSaved && !_unsaved.empty()) {
    isSaved = saveOne(*_unsaved.begin());
    if (isSaved) _unsaved.erase(_unsaved.begin());
  }
  report(isSaved);
  if (_logs->isGrown()) _logs->rewriteValues();
  if (_name.isSecret) _syncThread.syncSoon(_logs->valuesFile());
}

// A value counts before the list that it replaces is gone.
bool RecordStore::saveOne(const std::string& key) {
  const auto value = find(key);
  if (!value) return _logs->remove(key) && _logs->endList(key);
  if (value->kind == ValueKind::list) return true;
  auto saved = encoded(key, *value);
  return saved && _logs->put(key, *std::move(saved)) && _logs->endList(key);
}

EditResult RecordStore::edit(std::string_view key, const Larder::ListEdit& edit,
                             Larder::Durability durability) {
  if (isInChild()) return {EditOutcome::failed};
  const WithoutFileSizeSignal quiet;
  Writing writing(_writing);
  save();
  if (!isWritable() || !loadRows(writing) || _unsaved.contains(key)) return {EditOutcome::failed};
  auto result = appendEdit(key, edit);
  _isEditOwed = result.outcome == EditOutcome::failed;
  const bool isDone = result.outcome == EditOutcome::saved;
  if (isDone && durability == Larder::Durability::survivesPowerCut && !syncAll(writing)) {
    result.outcome = EditOutcome::savedUnsynced;
  } else if (result.outcome != EditOutcome::listIsGone) {
    report(isDone);
  }
  return result;
}

EditResult RecordStore::appendEdit(std::string_view key, const Larder::ListEdit& edit) {
  if (!edit.replacesAll && !holdsList(key)) return {EditOutcome::listIsGone};
  // Made before the file changes: after that nothing may go wrong.
  Image edited;
  edited.emplace(key, Value{ValueKind::list, nullptr});
  EditResult result{EditOutcome::failed};
  const auto outcome = _logs->edit(key, edit, result.placed);
  if (outcome == RowLog::Outcome::noList) return {EditOutcome::listIsGone};
  if (outcome != RowLog::Outcome::done) return {EditOutcome::failed};
  changeImage([&](Image& image) {
    if (const auto earlier = image.find(key); earlier != image.end()) image.erase(earlier);
    image.merge(edited);
  });
  result.outcome = EditOutcome::saved;
  return result;
}

// Not under the lock: who writes a value meanwhile does not wait for the medium. What could not be
// synced is synced by the next edit that asks for it.
bool RecordStore::syncAll(Writing& writing) {
  const auto files = _logs->unsynced();
  bool areSynced = _logs->syncFolder();
  writing.unlock();
  for (const auto& file : files) areSynced = file->sync() && areSynced;
  writing.lock();
  _isSyncOwed = !areSynced;
  if (_logs && !areSynced) report(false);
  return areSynced;
}

// A store whose files were removed, or could not be had, comes back as soon as there is a place for
// it, all of them or some. What an earlier run has left there is not touched: it waits for the next
// start.
void RecordStore::comeBack() {
  if (_path.empty() || (_logs && _logs->areLinked())) return;
  if (_logs) _store = _logs->store();
  _logs = nullptr;
  auto opened = StoreLogs::own(_path, _name, _system);
  if (!opened) return _trouble.begins(opened.error());
  Logs logs = *std::move(opened);
  if (!logs->isEmpty() && logs->store() != _store) return _path.clear();
  if (_name.isSecret && !(_key && keepMasterKey(*logs->folder(), *_key)))
    return _trouble.begins("its key cannot be kept");
  _logs = std::move(logs);
  // Whoever has a list writes it whole again: nobody knows what the files have of it.
  if (!_logs->loadRows()) return leave();
  for (const auto& key : _logs->listKeys()) _logs->endList(key);
  const std::scoped_lock guard(_imageMutex);
  std::erase_if(_image, [](const auto& item) { return item.second.kind == ValueKind::list; });
  for (const auto& [key, value] : _image) _unsaved.insert(key);
}

// A line is not worth a failure of what has been done.
void RecordStore::report(bool isSaved) {
  if (isSaved && (_isEditOwed || _isSyncOwed)) return;
  catchingBadAlloc([&] { isSaved ? _trouble.isOver() : _trouble.goesOn(_logs->error()); });
}

}  // namespace kite::Linux
