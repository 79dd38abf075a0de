#pragma once

#include <Kite/KiteData.h>

#include "JSON/JSONEncoder.h"

#include <optional>
#include <string>

namespace kite {

/// Appends the text of the object that `toJSONObject(data)` is, mostly without making one. On an
/// error `out` keeps what was written before it.
[[nodiscard]] std::optional<EncodingError> appendJSON(std::string& out, const KiteData& data,
                                                      int enclosingContainers = 0);

}  // namespace kite
