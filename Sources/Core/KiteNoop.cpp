#include <Kite/KiteDependencies.h>
#include <Kite/KiteNoop.h>

namespace kite {
namespace {

const UUID& noopUUID() {
  static const UUID uuid = *UUID::parse("123e4567-e89b-12d3-a456-426614174000");
  return uuid;
}

}  // namespace

KiteNoop::KiteNoop() : _currentSessionId(noopUUID()), _currentProcessId(noopUUID()) {}

void KiteNoop::start(KiteDependencies) {}

KiteNoop KiteManager::noop() { return {}; }

}  // namespace kite
