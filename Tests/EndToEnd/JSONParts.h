#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kite::test {

/// The part of a JSON text at a pointer such as "/device/type", as it is written there; "" when
/// there is none.
std::string partOf(const std::string& json, const std::string& pointer);
/// As `partOf`, for a number; not a number when there is none.
double numberIn(const std::string& json, const std::string& pointer);

/// Pointers, and the JSON text that is to be found there.
using Parts = std::vector<std::pair<std::string, std::string>>;
void expectParts(const std::string& json, const Parts& parts);

}  // namespace kite::test
