#include <Kite/KiteDependencies.h>
#include <Kite/KiteNoop.h>

namespace kite {

KiteNoop::KiteNoop() : _currentSessionId(UUID::noop()), _currentProcessId(UUID::noop()) {}

void KiteNoop::start(KiteDependencies) {}

KiteNoop KiteManager::noop() { return {}; }

}  // namespace kite
