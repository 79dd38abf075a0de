#pragma once

#include <string>
#include <string_view>

namespace kite {

/// Whether the text is UTF-8 that a JSON string holds as it is.
bool isPlainUTF8(std::string_view text);

/// Appends text that is known to be UTF-8 as a JSON string.
void appendQuotedUTF8(std::string& out, std::string_view text);

}  // namespace kite
