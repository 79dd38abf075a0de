#pragma once

#include <Kite/Platform/Locale.h>

#include "Linux/Machine/Environment.h"

namespace kite::Linux {

/// The locale that LC_ALL, LC_MESSAGES or LANG names, the first that is set; its languages are
/// those of LANGUAGE, if there are any. "en" when nothing is named, or only the C locale.
Locale localeFrom(const Environment& environment);

}  // namespace kite::Linux
