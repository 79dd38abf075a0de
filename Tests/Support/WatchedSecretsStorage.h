#pragma once

#include <Kite/Platform/Larder.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>

namespace kite::test {

/// Another secrets store, seen through: tells of "read KEY", "write KEY" and "remove KEY" before
/// each of these, of "lock" once the monitor is entered and of "unlock" before it is left. Locks
/// within a lock go untold.
class WatchedSecretsStorage final : public Larder::SecretsStorage {
 public:
  using Tell = std::function<void(std::string operation)>;

  WatchedSecretsStorage(std::shared_ptr<Larder::SecretsStorage> store, Tell tell)
      : _store(std::move(store)), _tell(std::move(tell)) {}

  std::shared_ptr<const Larder::StoredValue> read(std::string_view key) const override {
    _tell("read " + std::string(key));
    return _store->read(key);
  }
  std::uint64_t revision() const override { return _store->revision(); }
  void write(std::string_view key, Data data) override {
    _tell("write " + std::string(key));
    _store->write(key, std::move(data));
  }
  void remove(std::string_view key) override {
    _tell("remove " + std::string(key));
    _store->remove(key);
  }

  void lock() override {
    _store->lock();
    if (_depth++ == 0) _tell("lock");
  }
  void unlock() override {
    if (--_depth == 0) _tell("unlock");
    _store->unlock();
  }

 private:
  std::shared_ptr<Larder::SecretsStorage> _store;
  Tell _tell;
  int _depth = 0;  // belongs to whoever is in the monitor
};

}  // namespace kite::test
