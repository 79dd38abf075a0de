#include "JSON/LastingParser.h"

#include <simdjson.h>

namespace kite {
namespace {

const simdjson::implementation* neverDestroyed(const simdjson::implementation* best) {
#if SIMDJSON_IMPLEMENTATION_ICELAKE
  if (best->name() == "icelake") return new simdjson::icelake::implementation;
#endif
#if SIMDJSON_IMPLEMENTATION_HASWELL
  if (best->name() == "haswell") return new simdjson::haswell::implementation;
#endif
#if SIMDJSON_IMPLEMENTATION_WESTMERE
  if (best->name() == "westmere") return new simdjson::westmere::implementation;
#endif
#if SIMDJSON_IMPLEMENTATION_ARM64
  if (best->name() == "arm64") return new simdjson::arm64::implementation;
#endif
#if SIMDJSON_IMPLEMENTATION_FALLBACK
  if (best->name() == "fallback") return new simdjson::fallback::implementation;
#endif
  return best;
}

}  // namespace

void useLastingParser() {
  [[maybe_unused]] static const bool isInUse = [] {
    const auto* best = simdjson::get_available_implementations().detect_best_supported();
    simdjson::get_active_implementation() = neverDestroyed(best);
    return true;
  }();
}

}  // namespace kite
