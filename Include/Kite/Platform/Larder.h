#pragma once

#include <Kite/Base/Data.h>
#include <Kite/DynamicValue.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// Storage: small values by key.
namespace kite::Larder {

/// One element of a stored list, as JSON text. Never changes.
class Segment {
 public:
  virtual ~Segment() = default;
  virtual std::size_t size() const = 0;
  virtual void appendTo(std::string& text) const = 0;
};

/// A list element and its place: ordinals ascend along a list and are never used twice in it.
struct Row {
  std::uint64_t ordinal;
  std::shared_ptr<const Segment> segment;
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
};

/// What an edit outlives once it is saved.
enum class Durability {
  survivesKill,      ///< the process's end
  survivesPowerCut,  ///< the machine's: the edit, and all that was written before, is on the medium
};

enum class EditOutcome {
  saved,
  failed,      ///< the saved list is still the old one, and the edit is the caller's to repeat
  listIsGone,  ///< the key holds no list, or one that lost rows to damage: only an edit that
               ///< replaces all can be saved
};

/// What a store held under one key at one moment. Never changes; a write puts a new one in its
/// place.
///
/// Remembers what its bytes decode to, so that a value that does not change is decoded once.
class StoredValue {
 public:
  struct StoredRow {
    std::uint64_t ordinal;
    std::string text;
  };

  explicit StoredValue(Data data) : _data(std::move(data)) {}
  explicit StoredValue(std::vector<StoredRow> rows) : _rows(std::move(rows)), _isList(true) {}

  /// The bytes; of a list, the JSON array of its elements.
  Data data() const;

  /// The elements when the value was written as a list, or null.
  const std::vector<StoredRow>* rows() const { return _isList ? &_rows : nullptr; }

  /// What `decode(bytes)` gives, worked out at the first call; null when it gives nothing. It lives
  /// as long as this. One value, one `T`. `decode` takes a `std::string_view` and gives an optional
  /// `T`.
  template <class T, class Decode>
  const T* decoded(Decode decode) const {
    std::call_once(_once, [&] {
      const Data bytes = data();
      if (auto value = decode(std::string_view(bytes.bytes)))
        _decoded = std::make_shared<const T>(*std::move(value));
    });
    return static_cast<const T*>(_decoded.get());
  }

 private:
  Data _data;
  std::vector<StoredRow> _rows;
  bool _isList = false;
  mutable std::once_flag _once;
  mutable std::shared_ptr<const void> _decoded;
};

inline Data StoredValue::data() const {
  if (!_isList) return _data;
  std::size_t size = 2 + _rows.size();
  for (const auto& row : _rows) size += row.text.size();
  Data array;
  array.bytes.reserve(size);
  array.bytes += '[';
  for (const auto& row : _rows) {
    if (&row != &_rows.front()) array.bytes += ',';
    array.bytes += row.text;
  }
  array.bytes += ']';
  return array;
}

/// Takes the elements of a stored list over, one after the other.
class ListReader {
 public:
  virtual ~ListReader() = default;
  /// The list begins. When it begins once more, what came before counts no longer. `next` is above
  /// every ordinal that the list has used.
  virtual void begin(std::uint64_t next) = 0;
  /// Ordinals ascend. The text lives for the call only, which must not use the store.
  virtual void take(std::uint64_t ordinal, std::string_view text) = 0;
};

/// Bytes under keys. Every operation is safe on any thread and atomic by itself.
///
/// Reading never touches a disk, lists aside: these are read anew each time. Writing takes effect
/// for readers at once and reaches the disk before it returns; when it cannot, the value stays in
/// memory, is tried again at the next write to any key, and the fault is reported once.
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
  /// What `read` gives of a list, without all of its elements being held at a time. False when the
  /// key holds no list, or one that cannot be read: then what was taken does not count.
  virtual bool readList(std::string_view key, ListReader& reader) const;

  /// Brings the list under `key` from its last saved state to the next one, in one transaction
  /// whose cost is that of the edit. Unless it is saved nothing changes.
  virtual EditOutcome edit(std::string_view key, const ListEdit& edit, Durability durability) = 0;

  /// Native numbers and dictionaries are kept as such, not as JSON. Nothing when the key holds
  /// another kind.
  virtual std::optional<double> readNumber(std::string_view key) const = 0;
  virtual void writeNumber(std::string_view key, double number) = 0;
  virtual std::optional<DynamicValue::Dictionary> readDictionary(std::string_view key) const = 0;
  virtual void writeDictionary(std::string_view key,
                               const DynamicValue::Dictionary& dictionary) = 0;
};

inline bool KVStorage::readList(std::string_view key, ListReader& reader) const {
  const auto value = read(key);
  const auto* rows = value ? value->rows() : nullptr;
  if (!rows) return false;
  reader.begin(rows->empty() ? 0 : rows->back().ordinal + 1);
  for (const auto& [ordinal, text] : *rows) reader.take(ordinal, text);
  return true;
}

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
