#pragma once

#include <string>
#include <string_view>

namespace kite::tool {

/// What a terminal can show.
enum class Letters { ascii, unicode };

/// By the locale that the environment asks for.
Letters lettersOfLocale();

/// How many columns a terminal gives to a text that is printable.
int columnsOf(std::string_view text);

/// A text of unknown origin as one piece of a line, of at most so many columns: what controls a
/// terminal or the direction of its text is replaced, and an ellipsis stands where it was cut.
std::string printable(std::string_view text, Letters letters, int mostColumns);

/// As many block characters, or number signs, as `share` of so many columns; at least a small one
/// for what is not zero.
std::string bar(double share, Letters letters, int columns);

}  // namespace kite::tool
