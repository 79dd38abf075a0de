#pragma once

#include <string>
#include <string_view>

namespace kite::tool {

/// Puts a file there with these bytes, in the place of one that is there already: at any moment
/// there is the old one or the whole new one. Throws `CommandFailure` when that fails.
void replaceFile(const std::string& path, std::string_view bytes);

}  // namespace kite::tool
