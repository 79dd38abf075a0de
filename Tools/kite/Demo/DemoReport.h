#pragma once

#include "Demo/Audience.h"
#include "Demo/Comparison.h"

#include <filesystem>
#include <string>

namespace kite::tool {

/// The result as a table, with the first few disagreements.
void print(const Audience& audience, const Comparison& comparison,
           const std::filesystem::path& database);

/// The result as one JSON object.
std::string jsonReport(const Comparison& comparison, const std::filesystem::path& database);

}  // namespace kite::tool
