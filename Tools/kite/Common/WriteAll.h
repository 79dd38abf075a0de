#pragma once

#include <string_view>

namespace kite::tool {

/// Writes straight to a file descriptor, nothing kept back. Throws `CommandFailure` when that
/// fails.
void writeAll(int descriptor, std::string_view bytes);

}  // namespace kite::tool
