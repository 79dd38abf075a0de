#pragma once

#include <Kite/Platform/FileManager.h>

#include <filesystem>

namespace kite::Linux {

/// The file system, in which `documents` is the user's document folder.
FileManager fileManager(std::filesystem::path documents);

}  // namespace kite::Linux
