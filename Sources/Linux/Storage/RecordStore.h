#pragma once

#include <Kite/Platform/Larder.h>
#include <Kite/Platform/System.h>

#include "Linux/Storage/Seal.h"
#include "Linux/Storage/StoreLogs.h"
#include "Linux/Storage/SyncThread.h"
#include "Linux/Storage/TroubleReport.h"

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

namespace kite::Linux {

/// A store's values in memory, and every change of them in its logs. Any thread.
///
/// Lists stay on the disk: memory knows only that they exist, and their segments are looked at when
/// a list is first asked for. Whoever reads or writes another value meanwhile does not wait for
/// that. What cannot be written stays in memory and is written by the next change that can. In a
/// child made by `fork` nothing changes and nothing reaches the disk.
class RecordStore {
 public:
  struct Value {
    ValueKind kind;
    std::shared_ptr<const Larder::StoredValue> bytes;  ///< none of a list
  };

  /// While the folder cannot be had, the values are in memory and the console knows why.
  static std::unique_ptr<RecordStore> open(const std::filesystem::path& folder,
                                           const StoreName& name, const System& system);
  /// For tools: as the store is now, or as its owner. The error is one line for a person.
  static Result<std::unique_ptr<RecordStore>, std::string> inspect(
      const std::filesystem::path& folder, const StoreName& name, bool forWriting);

  /// `path` is empty when nothing may be written there, `logs` null while it cannot be had; `key`
  /// is that of a secret store.
  RecordStore(std::filesystem::path path, StoreName name, std::shared_ptr<StoreLogs> logs,
              std::shared_ptr<const MasterKey> key, System system);
  RecordStore(const RecordStore&) = delete;
  RecordStore& operator=(const RecordStore&) = delete;

  /// Another one after every change of any value.
  std::uint64_t revision() const { return _revision.load(std::memory_order_acquire); }
  std::optional<Value> find(std::string_view key) const;
  std::map<std::string, ValueKind> kinds() const;
  /// Nothing when the key holds no list, or one that cannot be read.
  std::optional<Larder::SavedList> readList(std::string_view key);

  void set(std::string_view key, ValueKind kind, Data data);
  void remove(std::string_view key);
  Larder::EditResult edit(std::string_view key, const Larder::ListEdit& edit,
                          Larder::Durability durability);

 private:
  using Logs = std::shared_ptr<StoreLogs>;
  using Key = std::shared_ptr<const MasterKey>;
  using Writing = std::unique_lock<std::mutex>;
  /// Keys differ in length more often than not, so that few texts are looked at.
  struct ShorterFirst {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const {
      return a.size() == b.size() ? a < b : a.size() < b.size();
    }
  };
  using Image = std::map<std::string, Value, ShorterFirst>;

  bool isInChild() const;
  bool isWritable() const { return _logs && !_path.empty(); }
  std::optional<Value> decoded(std::string_view key, const SavedValue& saved) const;
  std::optional<SavedValue> encoded(std::string_view key, const Value& value) const;
  void load();
  bool loadRows(Writing& writing);
  void learnLists();
  void comeBack();
  void leave();
  void change(std::string_view key, std::optional<Value> value);
  void save();
  bool saveOne(const std::string& key);
  void report(bool isSaved);
  bool holdsList(std::string_view key) const;
  Larder::EditResult appendEdit(std::string_view key, const Larder::ListEdit& edit);
  bool syncAll(Writing& writing);
  template <class Change>
  void changeImage(Change change);

  StoreName _name;
  Key _key;
  System _system;
  int _process;

  mutable std::mutex _imageMutex;  // guards _image; a leaf, never held during I/O
  Image _image;
  std::atomic<std::uint64_t> _revision =
      0;  // counts on after a change, so that none goes unnoticed

  std::mutex _writing;  // guards all below, and the order of changes
  std::filesystem::path _path;
  Logs _logs;
  std::uint64_t _store = 0;  // whose files were written to, and were there, last
  std::set<std::string, std::less<>> _unsaved;
  TroubleReport _trouble;
  bool _isEditOwed = false;  // the last edit failed
  bool _isSyncOwed = false;  // what was written last is not on the medium
  SyncThread _syncThread;
};

}  // namespace kite::Linux
