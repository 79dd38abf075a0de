#pragma once

#include <Kite/Platform/System.h>
#include <Kite/Platform/Usher.h>

#include "Base/Guarded.h"
#include "Base/Started.h"

#include <memory>
#include <string>
#include <string_view>
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
  struct State {
    Ids kept;
    CustomIdentifiers provided;  // by names that `kept` does not have
  };
  using Values = std::vector<std::pair<std::string_view, std::string>>;

  static bool isCurrent(const Ids& ids, const State& state, const Values& values);

  System _system;
  Started<State> _state{"Call start before using the UsherManager", {}};
  mutable Guarded<std::shared_ptr<const Ids>> _ids;
};

inline constexpr Larder::Key<UUID> userDefaultsIdKey{"Kite-User-Defaults-Id"};
inline constexpr Larder::Key<UUID> keychainIdKey{"Kite-Keychain-Id"};

}  // namespace kite::Usher
