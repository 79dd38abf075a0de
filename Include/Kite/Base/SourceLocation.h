#pragma once

#include <cstdint>

namespace kite {

/// A place in source code. As a default argument (`SourceLocation where = {}`) it names the
/// caller's.
struct SourceLocation {
  const char* file = __builtin_FILE();
  const char* function = __builtin_FUNCTION();
  std::uint64_t line = __builtin_LINE();
};

}  // namespace kite
