#pragma once

#include <Kite/Platform/Usher.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace kite::test {

/// An identity provider whose identifiers a test sets. `ids()` gives the same object until one
/// changes.
class FakeUsher final : public Usher::UsherManager {
 public:
  static constexpr const char* userDefaultsName = "user_defaults_id";
  static constexpr const char* keychainName = "keychain_id";

  std::function<void()> onRead = [] {};  ///< whenever `ids()` is asked

  FakeUsher() {
    set(userDefaultsName, {"user-defaults", Usher::CreationType::readFromFile});
    set(keychainName, {"keychain", Usher::CreationType::readFromFile});
  }

  void set(const std::string& name, Usher::Id id) {
    auto changed = _ids ? *_ids : Usher::Ids{};
    changed.insert_or_assign(name, std::move(id));
    _ids = std::make_shared<const Usher::Ids>(std::move(changed));
  }
  void setCreationTypes(Usher::CreationType userDefaults, Usher::CreationType keychain) {
    set(userDefaultsName, {"user-defaults", userDefaults});
    set(keychainName, {"keychain", keychain});
  }

  void start(Usher::UsherDependencies dependencies) override {
    _startedWith = std::move(dependencies);
  }
  std::shared_ptr<const Usher::Ids> ids() const override {
    ++_reads;
    onRead();
    return _ids;
  }
  Usher::Id userDefaultsId() const override { return _ids->at(userDefaultsName); }
  Usher::Id keychainId() const override { return _ids->at(keychainName); }

  /// What `start` was given, or nothing before it ran.
  const std::optional<Usher::UsherDependencies>& startedWith() const { return _startedWith; }
  /// How often `ids()` was asked.
  int reads() const { return _reads; }

 private:
  std::shared_ptr<const Usher::Ids> _ids;
  std::optional<Usher::UsherDependencies> _startedWith;
  mutable std::atomic<int> _reads = 0;
};

}  // namespace kite::test
