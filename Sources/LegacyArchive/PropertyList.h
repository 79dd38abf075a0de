#pragma once

#include <Kite/DynamicValue.h>

#include <optional>
#include <string>
#include <string_view>

/// Property lists: trees of dictionaries, arrays and plain values, as binary or as XML documents.
///
/// Readers give nothing for a document that is damaged, nests deeper than `maximumDepth` or would
/// take much more memory than its own size. A reference to another object of a keyed archive reads
/// as a dictionary whose only key is `referenceKey`, its form in XML.
namespace kite::PropertyList {

inline constexpr int maximumDepth = 512;
inline constexpr std::size_t maximumSize = std::size_t{64} << 20;
inline constexpr std::string_view referenceKey = "CF$UID";

std::optional<DynamicValue> read(std::string_view document);
std::optional<DynamicValue> readXML(std::string_view document);

}  // namespace kite::PropertyList
