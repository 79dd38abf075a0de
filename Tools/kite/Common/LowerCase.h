#pragma once

namespace kite::tool {

/// Of the letters from A to Z, whatever the locale is.
constexpr char lowerCase(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}

}  // namespace kite::tool
