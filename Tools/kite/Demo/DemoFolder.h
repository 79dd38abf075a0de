#pragma once

#include <filesystem>
#include <string>

namespace kite::tool {

/// An empty folder for one run, as an absolute path: `wanted`, or a new one within it when that is
/// in use, or a new one in the temporary folder when nothing is wanted. Throws `CommandFailure`
/// when the folder cannot be made.
std::filesystem::path makeDemoFolder(const std::string& wanted);

}  // namespace kite::tool
