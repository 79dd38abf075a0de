#pragma once

#include <Kite/Base/Export.h>
#include <Kite/DynamicValue.h>

#include <optional>
#include <string_view>

/// Archives that earlier versions left behind. Implemented by the platform.
namespace kite::LegacyArchive {

/// Reads a keyed archive whose root object is a dictionary; nothing when it is anything else,
/// damaged or hostile.
///
/// Time and memory are bounded by the archive's size. An object of a class without a conversion
/// becomes `DynamicValue::Opaque`.
KITE_EXPORT std::optional<DynamicValue::Dictionary> unarchiveDictionary(std::string_view archive);

/// Reads a plain property list, binary or XML, whose root is a dictionary; nothing when it is
/// anything else, damaged or hostile. The same bounds hold.
KITE_EXPORT std::optional<DynamicValue::Dictionary> propertyListDictionary(
    std::string_view document);

}  // namespace kite::LegacyArchive
