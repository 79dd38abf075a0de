#pragma once

#include <Kite/Platform/Larder.h>
#include <Kite/Platform/System.h>

#include "Linux/Storage/RecordStore.h"

#include <memory>

namespace kite::Linux {

/// A key-value store in logs of its own.
class LogKVStorage final : public Larder::KVStorage {
 public:
  LogKVStorage(RecordStore::Place place, System system);

  std::shared_ptr<const Larder::StoredValue> read(std::string_view key) const override;
  std::optional<Larder::SavedList> readList(std::string_view key) const override;
  std::uint64_t revision() const override { return _values->revision(); }
  void write(std::string_view key, Data data) override;
  void remove(std::string_view key) override;
  Larder::EditResult edit(std::string_view key, const Larder::ListEdit& edit,
                          Larder::Durability durability) override;
  std::optional<double> readNumber(std::string_view key) const override;
  void writeNumber(std::string_view key, double number) override;
  std::optional<Data> readPropertyList(std::string_view key) const override;
  void writePropertyList(std::string_view key, Data document) override;

  RecordStore& values() const { return *_values; }

 private:
  std::unique_ptr<RecordStore> _values;
};

}  // namespace kite::Linux
