#pragma once

#include <Kite/Base/Export.h>

#include <array>
#include <string_view>

namespace kite {

/// How grave a debug event is, in ascending order.
enum class Severity { debug, notice, warning, error, critical };

inline constexpr std::array allSeverities{Severity::debug, Severity::notice, Severity::warning,
                                          Severity::error, Severity::critical};

/// "Debug", "Notice", "Warning", "Error" or "Critical".
KITE_EXPORT std::string_view text(Severity severity);

}  // namespace kite
