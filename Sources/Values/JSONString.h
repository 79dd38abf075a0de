#pragma once

#include <string>
#include <string_view>

namespace kite {

/// Appends text that is known to be UTF-8 as a JSON string.
void appendQuotedUTF8(std::string& out, std::string_view text);

}  // namespace kite
