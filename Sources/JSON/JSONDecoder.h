#pragma once

#include <Kite/JSONValue.h>

#include <optional>
#include <string_view>

namespace kite {

/// The value that a JSON text (RFC 8259) stands for, or nothing when it is not one, is not UTF-8,
/// escapes half a surrogate pair, or nests values deeper than 1,024.
///
/// A number without fraction and exponent that fits a signed 64-bit integer is an integer, any
/// other a real; a real that overflows makes the text invalid. Of members with one key the last one
/// counts.
std::optional<JSONValue> decodeJSON(std::string_view text);

}  // namespace kite
