#pragma once

#include "Linux/Machine/PosixTimeZone.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kite::Linux {

/// The offsets of one time zone at all times, out of a compiled zone file (RFC 9636).
class ZoneFile {
 public:
  static std::optional<ZoneFile> parse(std::string_view bytes);
  /// By its name in the time zone database, such as "Europe/Berlin".
  static std::optional<ZoneFile> load(const std::string& name,
                                      const std::string& folder = "/usr/share/zoneinfo");

  ZoneOffset at(std::int64_t secondsSince1970) const;

 private:
  struct Block;

  std::vector<std::int64_t> _transitions;  // ascending
  std::vector<std::uint8_t> _typesAfter;   // of the same size
  std::vector<ZoneOffset> _types;          // never empty
  std::optional<PosixTimeZone> _rule;      // after the last transition
};

}  // namespace kite::Linux
