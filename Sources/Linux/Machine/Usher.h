#pragma once

#include <Kite/Platform/System.h>
#include <Kite/Platform/Usher.h>

#include "Base/Guarded.h"
#include "Base/Started.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kite::Usher {

/// Keeps an identifier in each store, made when there is none, and asks the host for all others
/// whenever identifiers are wanted.
class Manager final : public UsherManager {
 public:
  explicit Manager(System system = System::live()) : _system(std::move(system)) {}

  void start(UsherDependencies dependencies) override;
  std::shared_ptr<const Ids> ids() const override;
  Id userDefaultsId() const override;
  Id keychainId() const override;

 private:
  using Values = std::vector<std::optional<std::string>>;  // in the order of `provided`

  /// What the host answered last, and the identifiers that it makes.
  struct Answer {
    Values values;
    Ids ids;
  };
  struct State {
    Ids kept;
    CustomIdentifiers provided;  // by names that `kept` does not have
    mutable Guarded<std::shared_ptr<const Answer>> last{};
  };

  static std::optional<Values> changedValues(const State& state, const Answer* last);
  static std::shared_ptr<const Answer> answer(const State& state, Values values);

  System _system;
  Started<State> _state{"Call start before using the UsherManager", {}};
};

inline constexpr Larder::Key<UUID> userDefaultsIdKey{"Kite-User-Defaults-Id"};
inline constexpr Larder::Key<UUID> keychainIdKey{"Kite-Keychain-Id"};

}  // namespace kite::Usher
