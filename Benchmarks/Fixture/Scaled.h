#pragma once

#include <cstdint>
#include <cstdlib>

namespace kite::bench {

/// Whether the run is to show only that everything works.
inline bool isSmoke() {
  static const bool isSet = std::getenv("KITE_BENCH_SMOKE") != nullptr;
  return isSet;
}

/// A count of a full run, or a small one in its place.
inline std::int64_t scaled(std::int64_t full) { return isSmoke() ? (full + 999) / 1000 : full; }

}  // namespace kite::bench
