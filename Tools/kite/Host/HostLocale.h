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

/// The system's locale with what the options say of it.
Locale hostLocale(const HostOptions& options, Locale system);

}  // namespace kite::tool
