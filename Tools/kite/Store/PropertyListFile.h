#pragma once

#include <Kite/DynamicValue.h>

#include <filesystem>

namespace kite::tool {

/// The dictionary that is the root of a property list, binary or XML. Throws `CommandFailure` when
/// the file cannot be read or holds something else.
DynamicValue::Dictionary readPropertyListFile(const std::filesystem::path& file);

}  // namespace kite::tool
