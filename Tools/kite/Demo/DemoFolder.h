#pragma once

#include <filesystem>
#include <string>

namespace kite::tool {

/// An empty folder for one run, as an absolute path: `wanted`, or a new one in the temporary folder
/// when that is empty. Throws `CommandFailure` when the folder cannot be made or is in use.
std::filesystem::path makeDemoFolder(const std::string& wanted);

}  // namespace kite::tool
