#pragma once

#include <Kite/Base/Data.h>
#include <Kite/Linux/LinuxPlatform.h>

#include <filesystem>
#include <string_view>
#include <variant>

namespace kite::tool {

/// A property list whose root is a dictionary.
struct PropertyList {
  Data document;
  friend bool operator==(const PropertyList&, const PropertyList&) = default;
};

/// A value as a store keeps it: bytes, a native number or a native dictionary.
using StoreValue = std::variant<Data, double, PropertyList>;

/// What a file holds when it is read as `form`: "json", "number", "data" or "plist". Throws
/// `CommandFailure` when it is something else.
StoreValue readValue(const std::filesystem::path& file, std::string_view form);

/// Throws `CommandFailure` when the store does not keep values of that kind.
void putValue(const Linux::StoreInspector& store, std::string_view key, const StoreValue& value);

}  // namespace kite::tool
