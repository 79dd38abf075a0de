#pragma once

#include <Kite/Platform/Tempra.h>

namespace kite::Linux {

/// The wall clock. An adjustment of the machine's clock shows in it.
Tempra::TimeProvider systemTimeProvider();

}  // namespace kite::Linux
