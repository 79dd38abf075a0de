#pragma once

#include <optional>
#include <string_view>

namespace kite::tool {

/// Seconds since 1970 of "-5m" (also s, h, d), "14:30", "2026-01-31" or "2026-01-31T14:30:00Z";
/// what names no zone is local time. Nothing when it is none of these.
std::optional<double> parseTime(std::string_view text, double now);

}  // namespace kite::tool
