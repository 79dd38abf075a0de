#pragma once

#include <Kite/Platform/Larder.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

namespace kite::bench {

/// A store that tells how many list edits it has brought to the disk.
class WatchedStorage final : public Larder::KVStorage {
 public:
  explicit WatchedStorage(std::shared_ptr<Larder::KVStorage> store) : _store(std::move(store)) {}

  std::uint64_t edits() const { return _edits.load(std::memory_order_acquire); }

  Larder::EditResult edit(std::string_view key, const Larder::ListEdit& edit,
                          Larder::Durability durability) override {
    auto result = _store->edit(key, edit, durability);
    if (result.outcome == Larder::EditOutcome::saved)
      _edits.fetch_add(1, std::memory_order_release);
    return result;
  }

  std::shared_ptr<const Larder::StoredValue> read(std::string_view key) const override {
    return _store->read(key);
  }
  std::optional<Larder::SavedList> readList(std::string_view key) const override {
    return _store->readList(key);
  }
  std::uint64_t revision() const override { return _store->revision(); }
  void write(std::string_view key, Data data) override { _store->write(key, std::move(data)); }
  void remove(std::string_view key) override { _store->remove(key); }
  std::optional<double> readNumber(std::string_view key) const override {
    return _store->readNumber(key);
  }
  void writeNumber(std::string_view key, double number) override {
    _store->writeNumber(key, number);
  }
  std::optional<Data> readPropertyList(std::string_view key) const override {
    return _store->readPropertyList(key);
  }
  void writePropertyList(std::string_view key, Data document) override {
    _store->writePropertyList(key, std::move(document));
  }

 private:
  const std::shared_ptr<Larder::KVStorage> _store;
  std::atomic<std::uint64_t> _edits = 0;
};

}  // namespace kite::bench
