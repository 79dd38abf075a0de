#pragma once

#include <Kite/Base/Data.h>
#include <Kite/Base/UUID.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// Storage: small values by key.
namespace kite::Larder {

/// The text of one list element, JSON, in memory. Never changes.
class ElementText {
 public:
  virtual ~ElementText() = default;
  virtual std::size_t size() const = 0;
  virtual void appendTo(std::string& text) const = 0;
};

/// A new list element. Ordinals ascend along a list and are never used twice in it.
struct Row {
  std::uint64_t ordinal;
  std::shared_ptr<const ElementText> text;
  UUID tag = {};  ///< comes back with the saved row, without its text being read
};

struct RowPlace;

/// The saved rows of one file of a store. Any thread.
class RowFile {
 public:
  /// One call a place, in their order; without a text for a row that is damaged, of which the
  /// console is told once. The text lives for the call only.
  using Take = std::function<void(std::optional<std::string_view> text)>;

  virtual ~RowFile() = default;
  /// Reads rows of this file, together those that lie close to each other. Returns why the file
  /// cannot be read, for a person, or nothing; some rows may have been taken by then.
  virtual std::optional<std::string> read(std::span<const RowPlace> places,
                                          const Take& take) const = 0;
};

/// Where a saved row is. It can be read for as long as this is held, whatever becomes of the list.
struct RowPlace {
  std::shared_ptr<const RowFile> file;
  std::uint64_t offset;
  std::uint32_t size;  ///< of the row in its file; never 0
};

struct SavedRow {
  std::uint64_t ordinal;
  UUID tag;
  RowPlace place;
};

struct SavedList {
  std::uint64_t next = 0;           ///< above every ordinal that the list has used
  std::vector<SavedRow> rows = {};  ///< by ordinal
  std::string note = {};            ///< of the last edit that had one
};

/// The ordinals from `first` up to, but not including, `end`.
struct OrdinalRange {
  std::uint64_t first;
  std::uint64_t end;

  friend bool operator==(const OrdinalRange&, const OrdinalRange&) = default;
};

/// The step from one state of a stored list to the next. To every reader it happens whole or not at
/// all.
struct ListEdit {
  bool replacesAll = false;  ///< begin from nothing, whatever the key holds
  std::vector<OrdinalRange>
      removed;                ///< ascending; ordinals that the list does not hold are ignored
  std::vector<Row> appended;  ///< ascending, each above all that stay
  std::string note = {};      ///< a short text that is saved with the step; without it the list
                              ///< keeps the one that it has
};

/// What an edit outlives once it is saved.
enum class Durability {
  survivesKill,      ///< the process's end
  survivesPowerCut,  ///< the machine's: the edit, and all that was written before, is on the medium
};

enum class EditOutcome {
  saved,
  savedUnsynced,  ///< saved, but not on the medium: the next edit that asks for it tries again
  failed,         ///< the saved list is still the old one, and the edit is the caller's to repeat
  listIsGone,     ///< the key holds no list, or one that lost rows to damage: only an edit that
                  ///< replaces all can be saved
};

struct EditResult {
  EditOutcome outcome;
  std::vector<SavedRow> placed = {};  ///< rows that were written: the new ones, and old ones that
                                      ///< the store has moved
};

/// What a store held under one key at one moment. Never changes; a write puts a new one in its
/// place.
///
/// Remembers what its bytes decode to, so that a value that does not change is decoded once.
class StoredValue {
 public:
  explicit StoredValue(Data data) : _data(std::move(data)) {}

  /// The bytes; of a list, the JSON array of its elements.
  const Data& data() const { return _data; }

  /// What `decode(bytes)` gives, worked out at the first call; null when it gives nothing. It lives
  /// as long as this. One value, one `T`. `decode` takes a `std::string_view` and gives an optional
  /// `T`.
  template <class T, class Decode>
  const T* decoded(Decode decode) const {
    std::call_once(_once, [&] {
      if (auto value = decode(std::string_view(_data.bytes)))
        _decoded = std::make_shared<const T>(*std::move(value));
    });
    return static_cast<const T*>(_decoded.get());
  }

 private:
  Data _data;
  mutable std::once_flag _once;
  mutable std::shared_ptr<const void> _decoded;
};

/// Bytes under keys. Every operation is safe on any thread and atomic by itself.
///
/// Reading never touches a disk, lists aside: these are read anew each time. Writing takes effect
/// for readers at once and reaches the disk before it returns; when it cannot, the value stays in
/// memory, is tried again at the next write to any key, and the fault is reported, once a minute at
/// most.
class Storage {
 public:
  virtual ~Storage() = default;

  /// Null when the key is absent, or holds a native number or dictionary.
  virtual std::shared_ptr<const StoredValue> read(std::string_view key) const = 0;
  /// Another number after every change of any value; the same one says that nothing has changed.
  virtual std::uint64_t revision() const = 0;
  virtual void write(std::string_view key, Data data) = 0;
  /// Absent keys are ignored.
  virtual void remove(std::string_view key) = 0;
};

/// The application's own store; it goes when the application's data go.
class KVStorage : public Storage {
 public:
  /// The list under `key`, without its texts. Nothing when the key holds no list, or one that
  /// cannot be read.
  virtual std::optional<SavedList> readList(std::string_view key) const = 0;

  /// Brings the list under `key` from its last saved state to the next one, in one transaction
  /// whose cost is that of the edit. Unless it is saved nothing changes.
  virtual EditResult edit(std::string_view key, const ListEdit& edit, Durability durability) = 0;

  /// A native number is kept as such, not as JSON. Nothing when the key holds another kind.
  virtual std::optional<double> readNumber(std::string_view key) const = 0;
  virtual void writeNumber(std::string_view key, double number) = 0;
  /// A native dictionary, as the bytes of a property list, binary or XML:
  /// `LegacyArchive::propertyListDictionary` decodes them. Nothing when the key holds another kind.
  virtual std::optional<Data> readPropertyList(std::string_view key) const = 0;
  virtual void writePropertyList(std::string_view key, Data document) = 0;
};

/// The protected store; it survives the removal of the application.
///
/// The object itself is the monitor of its read-modify-writes: `std::scoped_lock
/// guard(*secretsStorage);`.
class SecretsStorage : public Storage {
 public:
  /// Re-entrant.
  virtual void lock() = 0;
  virtual void unlock() = 0;
};

/// A key whose value is JSON that decodes to a `T`.
template <class T>
struct Key {
  std::string_view name;
};

}  // namespace kite::Larder
