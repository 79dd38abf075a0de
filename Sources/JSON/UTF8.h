#pragma once

#include <string>
#include <string_view>

namespace kite {

bool isUTF8(std::string_view text);

/// The text with each maximal ill-formed part replaced by one U+FFFD, as the Unicode standard
/// recommends.
std::string repairedUTF8(std::string text);
std::string repairedUTF8(std::string_view text);

}  // namespace kite
