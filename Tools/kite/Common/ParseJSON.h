#pragma once

#include <Kite/Base/Result.h>
#include <Kite/JSONValue.h>

#include <cstddef>
#include <string>
#include <string_view>

namespace kite::tool {

/// Containers may nest this deep in a line. Somewhat less than the library encodes, because an
/// event wraps the values of a line in a few containers of its own.
inline constexpr std::size_t maximumDepth = 500;

/// The value of one JSON text, or what is wrong with it.
///
/// An integer is an integer and a number with a fraction or an exponent is a real. Integers that
/// need more than 64 bits, members given twice and text that is not UTF-8 are refused.
Result<JSONValue, std::string> parseJSON(std::string_view text);

}  // namespace kite::tool
