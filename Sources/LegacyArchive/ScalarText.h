#pragma once

#include <Kite/DynamicValue.h>

#include <optional>
#include <string>
#include <string_view>

namespace kite::PropertyList {

/// The value of an element without child elements, such as `<integer>5</integer>`.
std::optional<DynamicValue> scalar(std::string_view element, const std::string& text);

}  // namespace kite::PropertyList
