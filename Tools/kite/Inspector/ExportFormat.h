#pragma once

#include "Collector/Store/Records.h"

#include <string>
#include <string_view>

namespace kite::tool {

struct ExportFormat {
  std::string_view name;
  std::string_view contentType;
  std::string_view file;
  std::string_view head;
  std::string_view between;  ///< two rows
  std::string_view foot;
  std::string (*row)(const EventRecord& event);
};

/// "ndjson", "json" or "csv"; the first when the name is empty. Throws an `APIError` for others.
const ExportFormat& exportFormat(std::string_view name);

}  // namespace kite::tool
