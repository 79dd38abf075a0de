#pragma once

#include "Demo/Audience.h"

#include <filesystem>
#include <string>

namespace kite::tool {

/// Commands that a shell takes as they are printed: they look at what the demo left in `folder`,
/// and start a collector at `address`, which has become free, and a host of one's own.
void printNextSteps(const Audience& audience, const std::filesystem::path& folder,
                    const std::string& address);

}  // namespace kite::tool
