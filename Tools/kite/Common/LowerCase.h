#pragma once

#include <algorithm>
#include <string>

namespace kite::tool {

/// Of the letters from A to Z, whatever the locale is.
constexpr char lowerCase(char letter) {
  return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
}
inline std::string lowerCased(std::string text) {
  std::ranges::transform(text, text.begin(), lowerCase);
  return text;
}

}  // namespace kite::tool
