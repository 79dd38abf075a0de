#include "Linux/Storage/RecordStore.h"

#include "Base/CatchingBadAlloc.h"
#include "Linux/Storage/FileSizeSignal.h"

#include <unistd.h>

#include <utility>

namespace kite::Linux {

using Larder::EditOutcome;
using Larder::EditResult;

RecordStore::Place RecordStore::own(const std::filesystem::path& path, const StoreName& name,
                                    const System& system) {
  auto folder = StoreFolder::own(path, name, system);
  if (folder) return {name, path, *std::move(folder)};
  system.print("[KITE] The " + name.title + " keeps its values in memory only: " + folder.error());
  return {name, path, nullptr};
}

RecordStore::RecordStore(Place place, Codec codec, System system)
    : _codec(std::move(codec)),
      _system(std::move(system)),
      _process(::getpid()),
      _place(std::move(place)),
      _trouble(_system, _place.name.title) {
  const WithoutFileSizeSignal quiet;
  if (_place.folder) {
    load();
  } else {
    _trouble.wasTold();  // by whoever made the place
  }
}

bool RecordStore::isInChild() const { return _process != ::getpid(); }

void RecordStore::load() {
  std::size_t damaged = 0;
  const bool isRead = logs().readValues([&](std::string_view key, const SavedValue& saved) {
    if (saved.kind == ValueKind::list) return;
    if (auto value = _codec.decode(key, saved)) {
      _image.insert_or_assign(std::string(key), *std::move(value));
    } else {
      ++damaged;
    }
  });
  if (!isRead) return leave();
  learnLists();
  if (damaged != 0)
    _system.print("[KITE] Damaged values in the " + _place.name.title + ": " +
                  std::to_string(damaged));
}

bool RecordStore::loadRows() {
  if (!_place.folder) return false;
  if (logs().hasRows()) return true;
  if (!logs().loadRows()) return leave(), false;
  learnLists();
  return true;
}

// A list under a key that has a value was about to be replaced by it, or the other way round.
void RecordStore::learnLists() {
  const std::scoped_lock guard(_imageMutex);
  for (auto& key : logs().listKeys()) {
    const auto found = _image.find(key);
    if (found == _image.end()) {
      _image.emplace(std::move(key), List{});
    } else if (!std::holds_alternative<List>(found->second) && isWritable()) {
      logs().endList(key);
    }
  }
}

// What it holds cannot be read this time, and must not be written over by what is known without it.
void RecordStore::leave() {
  if (!isWritable()) return;
  _trouble.begins(logs().error());
  _place.folder = nullptr;
  _store = 0;
}

std::optional<RecordStore::Value> RecordStore::find(std::string_view key) const {
  const std::scoped_lock guard(_imageMutex);
  const auto found = _image.find(key);
  return found == _image.end() ? std::nullopt : std::optional(found->second);
}

std::map<std::string, RecordStore::Value, std::less<>> RecordStore::all() const {
  const std::scoped_lock guard(_imageMutex);
  return {_image.begin(), _image.end()};
}

bool RecordStore::holdsList(std::string_view key) const {
  const auto value = find(key);
  return value && std::holds_alternative<List>(*value);
}

std::optional<Larder::SavedList> RecordStore::readList(std::string_view key) {
  if (isInChild()) return std::nullopt;
  const WithoutFileSizeSignal quiet;
  const std::scoped_lock writing(_writing);
  if (!loadRows() || !holdsList(key)) return std::nullopt;
  Larder::SavedList list;
  const auto outcome = logs().readList(key, list);
  if (outcome == RowLog::Outcome::failed) leave();
  return outcome == RowLog::Outcome::done ? std::optional(std::move(list)) : std::nullopt;
}

template <class Change>
void RecordStore::changeImage(Change change) {
  const std::scoped_lock guard(_imageMutex);
  change(_image);
  _revision.fetch_add(1, std::memory_order_release);
}

void RecordStore::set(std::string_view key, Value value) {
  if (isInChild()) return;
  const WithoutFileSizeSignal quiet;
  const std::scoped_lock writing(_writing);
  if (holdsList(key)) loadRows();
  _unsaved.emplace(key);
  changeImage([&](Image& image) { image.insert_or_assign(std::string(key), std::move(value)); });
  save();
}

void RecordStore::remove(std::string_view key) {
  if (isInChild()) return;
  const WithoutFileSizeSignal quiet;
  const std::scoped_lock writing(_writing);
  if (!find(key)) return;
  if (holdsList(key)) loadRows();
  _unsaved.emplace(key);
  changeImage([&](Image& image) { image.erase(image.find(key)); });
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
  if (logs().isGrown()) logs().rewriteValues();
  if (_place.name.syncsSoon) _syncThread.syncSoon(logs().valuesFile());
}

// A value counts before the list that it replaces is gone.
bool RecordStore::saveOne(const std::string& key) {
  const auto value = find(key);
  if (!value) return logs().remove(key) && logs().endList(key);
  if (std::holds_alternative<List>(*value)) return true;
  const auto saved = _codec.encode(key, *value);
  return saved && logs().put(key, *saved) && logs().endList(key);
}

EditResult RecordStore::edit(std::string_view key, const Larder::ListEdit& edit,
                             Larder::Durability durability) {
  if (isInChild()) return {EditOutcome::failed};
  const WithoutFileSizeSignal quiet;
  std::unique_lock writing(_writing);
  save();
  if (!isWritable() || !loadRows() || _unsaved.contains(key)) return {EditOutcome::failed};
  auto result = appendEdit(key, edit);
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
  edited.emplace(key, List{});
  EditResult result{EditOutcome::failed};
  const auto outcome = logs().edit(key, edit, result.placed);
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
bool RecordStore::syncAll(std::unique_lock<std::mutex>& writing) {
  const auto files = logs().unsynced();
  bool areSynced = logs().syncFolder();
  writing.unlock();
  for (const auto& file : files) areSynced = file->sync() && areSynced;
  writing.lock();
  _isSyncOwed = !areSynced;
  if (_place.folder) areSynced ? logs().wereSynced(files) : report(false);
  return areSynced;
}

// A store whose files were removed, or could not be had, comes back as soon as there is a place for
// it, all of them or some. What an earlier run has left there is not touched: it waits for the next
// start.
void RecordStore::comeBack() {
  if (_place.path.empty() || (_place.folder && logs().areLinked())) return;
  if (_place.folder) _store = logs().store();
  _place.folder = nullptr;
  auto folder = StoreFolder::own(_place.path, _place.name, _system);
  if (!folder) return _trouble.begins(folder.error());
  if (!(*folder)->logs().isEmpty() && (*folder)->logs().store() != _store) {
    _place.path.clear();
    return;
  }
  if (!_codec.moveTo((*folder)->folder())) return _trouble.begins("its key cannot be kept");
  _place.folder = *std::move(folder);
  // Whoever has a list writes it whole again: nobody knows what the files have of it.
  if (!logs().loadRows()) return leave();
  for (const auto& key : logs().listKeys()) logs().endList(key);
  const std::scoped_lock guard(_imageMutex);
  std::erase_if(_image, [](const auto& item) { return std::holds_alternative<List>(item.second); });
  for (const auto& [key, value] : _image) _unsaved.insert(key);
}

// A line is not worth a failure of what has been done.
void RecordStore::report(bool isSaved) {
  if (isSaved && _isSyncOwed) return;
  catchingBadAlloc([&] { isSaved ? _trouble.isOver() : _trouble.goesOn(logs().error()); });
}

}  // namespace kite::Linux
