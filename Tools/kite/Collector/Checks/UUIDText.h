#pragma once

#include <string_view>

namespace kite::tool {

/// Whether `text` is a UUID in its canonical upper-case form.
inline bool isUpperCaseUUID(std::string_view text) {
  if (text.size() != 36) return false;
  for (std::size_t at = 0; at < text.size(); ++at) {
    const bool hyphen = at == 8 || at == 13 || at == 18 || at == 23;
    const char letter = text[at];
    const bool digit = (letter >= '0' && letter <= '9') || (letter >= 'A' && letter <= 'F');
    if (hyphen ? letter != '-' : !digit) return false;
  }
  return true;
}

}  // namespace kite::tool
