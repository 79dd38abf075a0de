#pragma once

#include "Collector/EventFacts.h"

#include <simdjson.h>

namespace kite::tool {

EventFacts factsOfTree(std::string_view id, std::string_view type,
                       const simdjson::dom::object& data);

}  // namespace kite::tool
