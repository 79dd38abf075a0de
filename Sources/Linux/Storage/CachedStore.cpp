#include "Linux/Storage/CachedStore.h"

#include "Base/IfMemoryAllows.h"
#include "Linux/FileSizeSignal.h"

#include <unistd.h>

#include <utility>

namespace kite::Linux {

CachedStore::CachedStore(std::unique_ptr<StoreFile> file, Codec codec, System system)
    : _codec(std::move(codec)),
      _system(std::move(system)),
      _process(::getpid()),
      _file(std::move(file)),
      _trouble(_system, _file->name().title) {
  // Whoever made it has said why.
  if (!_file->folder()) _trouble.wasTold();
  load();
}

CachedStore::~CachedStore() {
  const WithoutFileSizeSignal quiet;
  // Locks of SQLite's may be held by threads that a forked child does not have.
  if (isInChild()) static_cast<void>(_file.release());
  _file.reset();
}

bool CachedStore::isInChild() const { return _process != ::getpid(); }

void CachedStore::load() {
  const WithoutFileSizeSignal quiet;
  RowStore::Entries entries;
  auto outcome = _file->rows().entries(entries);
  if (outcome == Outcome::damaged && _file->isWritable()) {
    entries = {};
    outcome = _file->beginAfresh(_system);
    if (outcome == Outcome::done) outcome = _file->rows().entries(entries);
  }
  if (outcome == Outcome::failed && _file->isWritable()) {
    entries = {};
    leaveFile();
  }
  for (auto& [key, saved] : entries.undamaged) {
    if (auto value = _codec.decode(key, saved)) {
      _image.emplace(std::move(key), *std::move(value));
    } else {
      ++entries.damaged;
    }
  }
  if (entries.damaged != 0)
    _system.print("[KITE] Damaged values in the " + _file->name().title + ": " +
                  std::to_string(entries.damaged));
}

std::optional<CachedStore::Value> CachedStore::find(std::string_view key) const {
  const std::scoped_lock guard(_imageMutex);
  const auto found = _image.find(key);
  return found == _image.end() ? std::nullopt : std::optional(found->second);
}

std::map<std::string, CachedStore::Value, std::less<>> CachedStore::all() const {
  const std::scoped_lock guard(_imageMutex);
  return {_image.begin(), _image.end()};
}

bool CachedStore::readList(std::string_view key, Larder::ListReader& reader) {
  if (isInChild()) return false;
  const WithoutFileSizeSignal quiet;
  const std::scoped_lock writing(_writing);
  std::vector<std::uint64_t> damaged;
  const auto read = [&] { return _file->rows().rows(key, reader, damaged); };
  auto outcome = read();
  if (outcome == Outcome::damaged && _file->isWritable()) {
    recover();
    outcome = read();
  }
  if (outcome == Outcome::failed && _file->isWritable()) return leaveFile(), false;
  if (outcome != Outcome::done)
    _system.print("[KITE] A list in the " + _file->name().title +
                  " cannot be read to its end: " + _file->rows().message());
  const auto value = find(key);
  if (!value || !std::holds_alternative<List>(*value)) return false;
  if (!damaged.empty()) dropRows(key, damaged);
  return true;
}

// Their ordinals must be free for new rows.
void CachedStore::dropRows(std::string_view key, const std::vector<std::uint64_t>& ordinals) {
  _system.print("[KITE] Damaged elements were dropped from a list in the " + _file->name().title +
                ": " + std::to_string(ordinals.size()));
  if (!_file->isWritable()) return;
  Larder::ListEdit edit;
  for (const auto ordinal : ordinals) edit.removed.push_back({ordinal, ordinal + 1});
  _file->rows().edit(key, edit);
}

template <class Change>
void CachedStore::changeImage(Change change) {
  const std::scoped_lock guard(_imageMutex);
  change(_image);
  _revision.fetch_add(1, std::memory_order_release);
}

void CachedStore::set(std::string_view key, Value value) {
  if (isInChild()) return;
  const WithoutFileSizeSignal quiet;
  const std::scoped_lock writing(_writing);
  _unsaved.emplace(key);
  changeImage([&](Image& image) { image.insert_or_assign(std::string(key), std::move(value)); });
  save();
}

void CachedStore::remove(std::string_view key) {
  if (isInChild()) return;
  const WithoutFileSizeSignal quiet;
  const std::scoped_lock writing(_writing);
  if (!find(key)) return;
  _unsaved.emplace(key);
  changeImage([&](Image& image) { image.erase(image.find(key)); });
  save();
}

Larder::EditOutcome CachedStore::edit(std::string_view key, const Larder::ListEdit& edit) {
  if (isInChild()) return Larder::EditOutcome::failed;
  const WithoutFileSizeSignal quiet;
  const std::scoped_lock writing(_writing);
  if (!_file->isWritable()) return Larder::EditOutcome::failed;
  comeBack();
  saveAll();
  if (_unsaved.contains(key)) return Larder::EditOutcome::failed;
  const auto isPossible = [&] { return edit.replacesAll || holdsWholeList(key); };
  if (!isPossible()) return Larder::EditOutcome::listIsGone;
  // Made before the file changes: after that nothing may go wrong.
  Image edited;
  edited.emplace(key, List{});
  auto outcome = _file->rows().edit(key, edit);
  if (outcome == Outcome::damaged) {
    recover();
    if (!isPossible()) return Larder::EditOutcome::listIsGone;
    outcome = _file->rows().edit(key, edit);
  }
  report(outcome);
  if (outcome != Outcome::done) return Larder::EditOutcome::failed;
  changeImage([&](Image& image) {
    if (const auto earlier = image.find(key); earlier != image.end()) image.erase(earlier);
    image.merge(edited);
  });
  return Larder::EditOutcome::saved;
}

bool CachedStore::holdsWholeList(std::string_view key) const {
  const auto value = find(key);
  const auto* list = value ? std::get_if<List>(&*value) : nullptr;
  return list && list->isWhole;
}

void CachedStore::save() {
  if (!_file->isWritable()) return;
  comeBack();
  saveAll();
}

void CachedStore::saveAll() {
  if (_unsaved.empty()) return;
  auto outcome = Outcome::done;
  while (!_unsaved.empty() && outcome == Outcome::done) {
    const auto next = _unsaved.begin();
    outcome = saveOne(*next);
    if (outcome == Outcome::damaged) {
      recover();
      outcome = saveOne(*_unsaved.begin());
    }
    if (outcome == Outcome::done) _unsaved.erase(_unsaved.begin());
  }
  report(outcome);
}

Outcome CachedStore::saveOne(const std::string& key) {
  const auto value = find(key);
  if (!value) return _file->rows().remove(key);
  if (std::holds_alternative<List>(*value)) return Outcome::done;
  const auto saved = _codec.encode(key, *value);
  return saved ? _file->rows().put(key, *saved) : Outcome::failed;
}

// The file is damaged. What memory holds is saved anew, lists are what could be read of them.
void CachedStore::recover() {
  forgetWhatIsSaved();
  if (_file->beginAfresh(_system) != Outcome::done) return;
  RowStore::Entries entries;
  _file->rows().entries(entries);
  std::set<std::string, std::less<>> lists;
  for (const auto& [key, saved] : entries.undamaged)
    if (saved.kind == ValueKind::list) lists.insert(key);
  changeImage([&](Image& image) {
    std::erase_if(image, [&](const auto& item) {
      return std::holds_alternative<List>(item.second) && !lists.contains(item.first);
    });
  });
}

// What it holds cannot be read this time, and must not be written over by what is known without it.
void CachedStore::leaveFile() {
  _trouble.begins(_file->rows().message());
  forgetWhatIsSaved();
  _file = StoreFile::standIn(_file->name(), _file->place());
}

// A file that was removed, or could not be had, comes back as soon as there is a place for it. What
// an earlier run has left there is not touched: it waits for the next start.
void CachedStore::comeBack() {
  if (!_file->isAway()) return;
  if (_file->folder()) {
    forgetWhatIsSaved();
    _file = StoreFile::standIn(_file->name(), _file->place());
  }
  auto file = StoreFile::own(_file->place(), _file->name(), _system);
  if (!file) return _trouble.begins(file.error());
  if (!(*file)->folder()) return _file->stayAway();
  RowStore::Entries earlier;
  if ((*file)->rows().entries(earlier) != Outcome::done)
    return _trouble.begins((*file)->rows().message());
  if (!earlier.undamaged.empty() || earlier.damaged != 0) return _file->stayAway();
  if (!_codec.moveTo(*(*file)->folder())) return _trouble.begins("its key cannot be kept");
  forgetWhatIsSaved();
  _file = *std::move(file);
}

// All values are to be saved again, lists as wholes.
void CachedStore::forgetWhatIsSaved() {
  const std::scoped_lock guard(_imageMutex);
  for (auto& [key, value] : _image) {
    if (auto* list = std::get_if<List>(&value)) {
      list->isWhole = false;
    } else {
      _unsaved.insert(key);
    }
  }
}

// A line is not worth a failure of what has been done.
void CachedStore::report(Outcome outcome) {
  ifMemoryAllows([&] {
    if (outcome != Outcome::done) {
      _trouble.goesOn(_file->rows().message());
    } else if (_file->folder()) {
      _trouble.isOver();
    }
  });
}

}  // namespace kite::Linux
