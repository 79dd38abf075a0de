#pragma once

#include <string>
#include <string_view>

namespace kite::tool {

/// `text` as a JSON string, quotes included; what is not UTF-8 in it becomes U+FFFD.
std::string quotedJSON(std::string_view text);

/// The shortest text that reads back as the same number, always with a fraction or an exponent.
/// The number is finite.
std::string realJSON(double number);

/// `text` cut to at most `limit` bytes, between two characters, with an ellipsis when it was cut.
std::string clipped(std::string_view text, std::size_t limit);

}  // namespace kite::tool
