#pragma once

#include <filesystem>
#include <string>

namespace kite::tool {

/// The bytes of a file. Throws `CommandFailure` when it cannot be read.
std::string readFile(const std::filesystem::path& file);

}  // namespace kite::tool
