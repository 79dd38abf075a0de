#pragma once

#include <Kite/Linux/LinuxPlatform.h>

#include <optional>
#include <string>
#include <string_view>

namespace kite::tool {

/// A stored value for people and scripts: bytes as they are, a native number or dictionary as a
/// line of JSON; nothing when the key is absent.
///
/// In a dictionary dates become seconds since 1970 and data hexadecimal text; entries whose key is
/// not a string are left out.
std::optional<std::string> storedText(const Linux::StoreInspector& store, std::string_view key);

}  // namespace kite::tool
