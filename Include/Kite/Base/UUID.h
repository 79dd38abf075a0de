#pragma once

#include <Kite/Base/Export.h>

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kite {

/// A universally unique identifier (RFC 9562).
struct KITE_EXPORT UUID {
  std::array<std::uint8_t, 16> bytes{};

  /// Reads the 36-character form with hyphens, in either case.
  static std::optional<UUID> parse(std::string_view text);

  /// The canonical form used everywhere: 36 characters, upper case, with hyphens.
  std::string text() const;

  /// The placeholder for sessions and processes that do not exist:
  /// 123e4567-e89b-12d3-a456-426614174000. Its `text` is in upper case, as every UUID's is.
  static const UUID& noop();

  friend constexpr auto operator<=>(const UUID&, const UUID&) = default;
};

}  // namespace kite
