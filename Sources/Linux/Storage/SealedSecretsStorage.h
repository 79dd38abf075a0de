#pragma once

#include <Kite/Platform/Larder.h>
#include <Kite/Platform/System.h>

#include "Linux/Storage/RecordStore.h"
#include "Linux/Storage/Seal.h"

#include <memory>
#include <mutex>

namespace kite::Linux {

/// A secrets store in a log whose values are sealed. The names of its keys are not.
class SealedSecretsStorage final : public Larder::SecretsStorage {
 public:
  SealedSecretsStorage(RecordStore::Place place, std::shared_ptr<const MasterKey> key,
                       System system);

  std::shared_ptr<const Larder::StoredValue> read(std::string_view key) const override;
  std::uint64_t revision() const override { return _values->revision(); }
  void write(std::string_view key, Data data) override;
  void remove(std::string_view key) override;
  void lock() override { _monitor.lock(); }
  void unlock() override { _monitor.unlock(); }

  RecordStore& values() const { return *_values; }

 private:
  std::recursive_mutex _monitor;
  std::unique_ptr<RecordStore> _values;
};

}  // namespace kite::Linux
