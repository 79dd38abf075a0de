#pragma once

#include <Kite/Platform/Larder.h>

#include "Support/InMemoryTable.h"

#include <cstdint>
#include <functional>
#include <new>
#include <optional>
#include <utility>

namespace kite::test {

/// A key-value store without a disk.
class InMemoryKVStorage final : public Larder::KVStorage {
 public:
  std::function<void()> onRead = [] {};   ///< before a list is read
  std::function<void()> onWrite = [] {};  ///< before a value is written or a list edited

  std::shared_ptr<const Larder::StoredValue> read(std::string_view key) const override {
    if (_table.find<InMemoryTable::List>(key))
      return std::make_shared<const Larder::StoredValue>(Data{_table.text(key)});
    return _table.find<InMemoryTable::Stored>(key).value_or(nullptr);
  }
  std::optional<Larder::SavedList> readList(std::string_view key) const override {
    onRead();
    const auto list = _table.find<InMemoryTable::List>(key);
    return list ? std::optional(**list) : std::nullopt;
  }
  std::uint64_t revision() const override { return _table.revision(); }
  void write(std::string_view key, Data data) override {
    onWrite();
    _table.set(key, std::make_shared<const Larder::StoredValue>(std::move(data)));
  }
  void remove(std::string_view key) override { _table.remove(key); }
  Larder::EditResult edit(std::string_view key, const Larder::ListEdit& edit,
                          Larder::Durability durability) override {
    onWrite();
    _durability = durability;
    auto result = _table.edit(key, edit);
    if (std::exchange(_losesOutcome, false)) throw std::bad_alloc();
    return result;
  }

  std::optional<double> readNumber(std::string_view key) const override {
    return _table.find<double>(key);
  }
  void writeNumber(std::string_view key, double number) override { _table.set(key, number); }
  std::optional<Data> readPropertyList(std::string_view key) const override {
    return _table.find<Data>(key);
  }
  void writePropertyList(std::string_view key, Data document) override {
    _table.set(key, std::move(document));
  }

  bool contains(std::string_view key) const { return _table.contains(key); }
  /// The bytes under `key`, of a list its whole array; "" when there are none.
  std::string text(std::string_view key) const { return _table.text(key); }
  /// Leaves bytes as an earlier run would have; not counted as a write.
  void put(std::string_view key, std::string text) { _table.put(key, std::move(text)); }
  /// How many calls tried to change something.
  int writes() const { return _table.writes(); }
  /// What the last edit was to survive.
  std::optional<Larder::Durability> durability() const { return _durability; }
  /// From now on the disk is full: values change for readers only, and edits are refused.
  void failWrites(bool failing) { _table.failWrites(failing); }
  /// From now on the texts of saved rows cannot be read.
  void failReads(bool failing) { _table.failReads(failing); }
  /// The checksums of all saved rows are wrong from now on.
  void damageRows() { _table.damageRows(); }
  /// From now on new rows are said to be there in their files.
  void placeRowsAt(std::uint64_t offset) { _table.placeRowsAt(offset); }
  /// The next edit is made, but memory runs out before it is told.
  void loseNextOutcome() { _losesOutcome = true; }
  /// What the next run of the application finds: that which had been saved.
  void restart() { _table.restart(); }

 private:
  InMemoryTable _table;
  std::optional<Larder::Durability> _durability;
  bool _losesOutcome = false;
};

}  // namespace kite::test
