#pragma once

#include <simdjson.h>

#include <optional>
#include <string>
#include <string_view>

namespace kite::tool {

/// What is wrong with one event of a batch that `app` sent, or nothing. The text names the event by
/// its id, or by `position` when it has none, and the member that is wrong.
std::optional<std::string> eventViolation(const simdjson::dom::element& event, std::size_t position,
                                          std::string_view app);

}  // namespace kite::tool
