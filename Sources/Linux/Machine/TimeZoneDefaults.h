#pragma once

#include <Kite/Platform/Locale.h>

#include "Linux/Machine/Environment.h"

#include <filesystem>
#include <optional>
#include <string>

namespace kite::Linux {

/// Where the machine says which time zone it is in.
struct TimeZoneFiles {
  std::filesystem::path name = "/etc/timezone";
  std::filesystem::path link = "/etc/localtime";
  std::string zones = "/usr/share/zoneinfo";
};

/// The given zone, or that of TZ, or the machine's, the first that the time zone database knows;
/// else UTC. The process's own zone is not touched.
TimeZone timeZoneFrom(const std::optional<std::string>& given, const Environment& environment,
                      const TimeZoneFiles& files = {});

}  // namespace kite::Linux
