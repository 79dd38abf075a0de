#pragma once

#include <Kite/Linux/LinuxPlatform.h>

#include "Linux/Machine/Environment.h"

#include <filesystem>
#include <optional>
#include <string>

namespace kite::Linux {

/// Where an application keeps what: in the XDG base directories.
struct Folders {
  std::filesystem::path data;
  std::filesystem::path secrets;
  /// Left out of backups. A host that names its own data folder gets none.
  std::optional<std::string> notBackedUp;
};

Folders foldersFor(const PlatformOptions& options, const Environment& environment);

}  // namespace kite::Linux
