#pragma once

#include <Kite/Platform/Larder.h>
#include <Kite/Platform/System.h>

#include "Linux/Storage/StoreFile.h"
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

/// A store's values in memory, and every change of them on the disk. Any thread.
///
/// Lists stay on the disk: memory knows only that they exist. A reader of any other value never
/// waits for the disk. In a child made by `fork` nothing changes and nothing reaches the disk.
class CachedStore {
 public:
  struct List {
    bool isWhole = true;  ///< damage took none of its rows
  };
  using Value = std::variant<std::shared_ptr<const Larder::StoredValue>, List, double,
                             std::shared_ptr<const DynamicValue::Dictionary>>;

  /// The form that values have in the file. `encode` gives nothing when it fails, `decode` for
  /// bytes that are no value.
  struct Codec {
    std::function<std::optional<SavedValue>(std::string_view key, const Value& value)> encode;
    std::function<std::optional<Value>(std::string_view key, const SavedValue& saved)> decode;
    /// Makes a folder without a store ready for the values; false when they cannot move there.
    std::function<bool(const PrivateFolder& folder)> moveTo = [](const auto&) { return true; };
  };

  CachedStore(std::unique_ptr<StoreFile> file, Codec codec, System system);
  ~CachedStore();
  CachedStore(const CachedStore&) = delete;
  CachedStore& operator=(const CachedStore&) = delete;

  /// Another one after every change of any value.
  std::uint64_t revision() const { return _revision.load(std::memory_order_acquire); }
  std::optional<Value> find(std::string_view key) const;
  std::map<std::string, Value, std::less<>> all() const;
  /// False when the key holds no list, or one that cannot be read.
  bool readList(std::string_view key, Larder::ListReader& reader);

  void set(std::string_view key, Value value);
  void remove(std::string_view key);
  Larder::EditOutcome edit(std::string_view key, const Larder::ListEdit& edit);

 private:
  /// Keys differ in length more often than not, so that few texts are looked at.
  struct ShorterFirst {
    using is_transparent = void;
    bool operator()(std::string_view a, std::string_view b) const {
      return a.size() == b.size() ? a < b : a.size() < b.size();
    }
  };
  using Image = std::map<std::string, Value, ShorterFirst>;

  void load();
  void leaveFile();
  bool isInChild() const;
  void save();
  void saveAll();
  Outcome saveOne(const std::string& key);
  void dropRows(std::string_view key, const std::vector<std::uint64_t>& ordinals);
  bool holdsWholeList(std::string_view key) const;
  void recover();
  void comeBack();
  void forgetWhatIsSaved();
  void report(Outcome outcome);
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
  std::unique_ptr<StoreFile> _file;
  std::set<std::string, std::less<>> _unsaved;
  TroubleReport _trouble;
};

}  // namespace kite::Linux
