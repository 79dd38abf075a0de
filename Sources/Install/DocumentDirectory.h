#pragma once

#include <Kite/Platform/FileManager.h>

#include <optional>

namespace kite {

/// When the user's document directory was made, in seconds since 1970; nothing when that cannot be
/// told.
std::optional<double> documentDirectoryCreationTimestamp(const FileManager& fileManager);

}  // namespace kite
