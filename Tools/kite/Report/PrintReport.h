#pragma once

#include "Report/PrintedText.h"
#include "Report/Report.h"

namespace kite::tool {

inline constexpr int nameColumns = 32;  ///< of an action, for people

/// For people: tables of at most 80 columns.
std::string tableReport(const Report& report, Letters letters);

/// For programs: one JSON object in one line.
std::string jsonReport(const Report& report);

/// For eyes: a picture in SVG.
std::string svgReport(const Report& report);

}  // namespace kite::tool
