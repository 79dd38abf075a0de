#pragma once

#include <Kite/Platform/System.h>
#include <Kite/Platform/Usher.h>

#include "Base/Published.h"
#include "Base/Started.h"

#include <memory>
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
  struct Answers {
    std::shared_ptr<const Ids> ids;
    std::vector<const std::string*> provided;  // those of `ids` that the host gave, or null
  };
  struct State {
    State(Ids known, CustomIdentifiers given);

    const Ids kept;
    const CustomIdentifiers provided;  // by names that `kept` does not have
    mutable Published<Answers> last;
  };

  System _system;
  Started<State> _state{"Call start before using the UsherManager", {}};
};

inline constexpr Larder::Key<UUID> userDefaultsIdKey{"Kite-User-Defaults-Id"};
inline constexpr Larder::Key<UUID> keychainIdKey{"Kite-Keychain-Id"};

}  // namespace kite::Usher
