#pragma once

#include <Kite/Platform/Locale.h>

#include <filesystem>
#include <optional>
#include <string>

namespace kite::Linux {

/// Where the machine says which time zone it is in.
struct TimeZoneFiles {
  std::filesystem::path link = "/etc/localtime";
  std::filesystem::path name = "/etc/timezone";
};

/// What the process's time zone is called: as TZ has it, else as the machine's files do; "UTC" when
/// nobody says.
std::string timeZoneName(const std::optional<std::string>& TZ, const TimeZoneFiles& files = {});

/// The process's time zone. Its offsets are those of `localtime_r`.
TimeZone timeZone();

}  // namespace kite::Linux
