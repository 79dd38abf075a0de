#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace kite::PropertyList {

/// Appends a code point as UTF-8; U+FFFD for what is none.
void appendUTF8(std::string& text, std::uint32_t codePoint);

/// UTF-8 from big-endian UTF-16 of an even size. Lone surrogates become U+FFFD.
std::string fromUTF16(std::string_view bytes);

}  // namespace kite::PropertyList
