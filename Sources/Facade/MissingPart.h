#pragma once

#include <Kite/KiteDependencies.h>

namespace kite {

/// The name of the first part that a bundle lacks and the library would call, or null.
const char* missingPart(const KiteDependencies& bundle);

}  // namespace kite
