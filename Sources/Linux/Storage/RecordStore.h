#pragma once

#include <Kite/Platform/Larder.h>
#include <Kite/Platform/System.h>

#include "Linux/Storage/StoreFolder.h"
#include "Linux/Storage/SyncThread.h"
#include "Linux/Storage/TroubleReport.h"

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <variant>

namespace kite::Linux {

/// A store's values in memory, and every change of them in its logs. Any thread.
///
/// Lists stay on the disk: memory knows only that they exist, and their segments are looked at when
/// a list is first asked for. A reader of any other value never
/// waits for the disk. What cannot be written stays in memory and is written by the next change
/// that can. In a child made by `fork` nothing changes and nothing reaches the disk.
class RecordStore {
 public:
  struct List {};
  /// `Data` is a native dictionary, as a property list.
  using Value = std::variant<std::shared_ptr<const Larder::StoredValue>, List, double,
                             std::shared_ptr<const Data>>;

  /// The form that values have in the log. `encode` gives nothing when it fails, `decode` for bytes
  /// that are no value.
  struct Codec {
    std::function<std::optional<SavedValue>(std::string_view key, const Value& value)> encode;
    std::function<std::optional<Value>(std::string_view key, const SavedValue& saved)> decode;
    /// Makes a folder without a store ready for the values; false when they cannot move there.
    std::function<bool(const PrivateFolder& folder)> moveTo = [](const auto&) { return true; };
  };

  /// Where a store lives, or is to live as soon as it can.
  struct Place {
    StoreName name;
    std::filesystem::path path;
    std::unique_ptr<StoreFolder> folder;  ///< null while it cannot be had
  };
  /// The console learns why a place cannot be had.
  static Place own(const std::filesystem::path& path, const StoreName& name, const System& system);

  RecordStore(Place place, Codec codec, System system);
  RecordStore(const RecordStore&) = delete;
  RecordStore& operator=(const RecordStore&) = delete;

  /// Another one after every change of any value.
  std::uint64_t revision() const { return _revision.load(std::memory_order_acquire); }
  std::optional<Value> find(std::string_view key) const;
  std::map<std::string, Value, std::less<>> all() const;
  /// Nothing when the key holds no list, or one that cannot be read.
  std::optional<Larder::SavedList> readList(std::string_view key);

  void set(std::string_view key, Value value);
  void remove(std::string_view key);
  Larder::EditResult edit(std::string_view key, const Larder::ListEdit& edit,
                          Larder::Durability durability);

 private:
  /// Keys differ in length more often than not, so that few texts are looked at.
  struct ShorterFirst {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const {
      return a.size() == b.size() ? a < b : a.size() < b.size();
    }
  };
  using Image = std::map<std::string, Value, ShorterFirst>;

  bool isInChild() const;
  bool isWritable() const { return _place.folder && _place.folder->isOwned(); }
  StoreLogs& logs() const { return _place.folder->logs(); }
  void load();
  bool loadRows();
  void learnLists();
  void comeBack();
  void leave();
  void save();
  bool saveOne(const std::string& key);
  void report(bool isSaved);
  bool holdsList(std::string_view key) const;
  Larder::EditResult appendEdit(std::string_view key, const Larder::ListEdit& edit);
  bool syncAll(std::unique_lock<std::mutex>& writing);
  template <class Change>
  void changeImage(Change change);

  Codec _codec;
  System _system;
  int _process;

  mutable std::mutex _imageMutex;  // guards _image; a leaf, never held during I/O
  Image _image;
  std::atomic<std::uint64_t> _revision =
      0;  // counts on after a change, so that none goes unnoticed

  std::mutex _writing;  // guards all below, and the order of changes
  Place _place;
  std::uint64_t _store = 0;  // whose files were written to, and were there, last
  std::set<std::string, std::less<>> _unsaved;
  TroubleReport _trouble;
  bool _isSyncOwed = false;  // what was written last is not on the medium
  SyncThread _syncThread;
};

}  // namespace kite::Linux
