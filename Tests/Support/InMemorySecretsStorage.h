#pragma once

#include <Kite/Platform/Larder.h>

#include "Support/InMemoryTable.h"

#include <mutex>
#include <utility>

namespace kite::test {

/// A secrets store without a disk; nothing in it is secret.
class InMemorySecretsStorage final : public Larder::SecretsStorage {
 public:
  std::shared_ptr<const Larder::StoredValue> read(std::string_view key) const override {
    return _table.find<InMemoryTable::Stored>(key).value_or(nullptr);
  }
  std::uint64_t revision() const override { return _table.revision(); }
  void write(std::string_view key, Data data) override {
    _table.set(key, std::make_shared<const Larder::StoredValue>(std::move(data)));
  }
  void remove(std::string_view key) override { _table.remove(key); }

  void lock() override { _monitor.lock(); }
  void unlock() override { _monitor.unlock(); }

  bool contains(std::string_view key) const { return _table.contains(key); }
  /// The bytes under `key`; "" when there are none.
  std::string text(std::string_view key) const { return _table.text(key); }
  /// Leaves bytes as an earlier run would have; not counted as a write.
  void put(std::string_view key, std::string text) { _table.put(key, std::move(text)); }
  /// How many calls tried to change something.
  int writes() const { return _table.writes(); }
  /// From now on the disk is full: values change for readers only.
  void failWrites(bool failing) { _table.failWrites(failing); }
  /// What the next run of the application finds: that which had been saved.
  void restart() { _table.restart(); }

 private:
  InMemoryTable _table;
  std::recursive_mutex _monitor;
};

}  // namespace kite::test
