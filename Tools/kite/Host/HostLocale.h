#pragma once

#include <Kite/Platform/Locale.h>

#include "Host/HostOptions.h"

#include <optional>
#include <string>
#include <string_view>

namespace kite::tool {

/// The region of an identifier such as "en_NZ" or "zh_Hant_TW@calendar=roc": its last part, when
/// that is of two letters or three digits and not the language.
std::optional<std::string> regionCode(std::string_view identifier);

/// Whether the system's time zone database, in TZDIR or /usr/share/zoneinfo, knows the zone.
bool isTimeZone(const std::string& name);
/// Makes it the zone of this process. To be called before there are threads.
void setTimeZone(const std::string& name);

/// The system's locale with what the options say of it.
Locale hostLocale(const HostOptions& options, Locale system);

}  // namespace kite::tool
