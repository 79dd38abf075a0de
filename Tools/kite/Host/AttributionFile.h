#pragma once

#include <Kite/AttributionClient.h>

#include <filesystem>

namespace kite::tool {

/// The details that a file with one JSON object stands for. Throws `CommandFailure` when it cannot
/// be read or holds something else.
AttributionClient::Details readAttributionFile(const std::filesystem::path& file);

}  // namespace kite::tool
