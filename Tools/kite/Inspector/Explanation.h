#pragma once

#include "Collector/Store/Records.h"

#include <optional>
#include <string>
#include <string_view>

namespace kite::tool {

/// The members "headers", "signature", "timestamp", "where" and "rule" of a request's JSON text:
/// why it was refused. The key that signs is used and never shown.
std::string explanationMembers(const RequestRecord& request, const std::optional<std::string>& body,
                               std::string_view key);

/// Where in a body's text the rule was broken that the message tells of.
struct BodyPlace {
  std::string path;  ///< such as "events[3].data.price"
  std::optional<std::size_t> offset;
  std::string excerpt;
};
std::optional<BodyPlace> placeOf(std::string_view message, std::string_view text);

}  // namespace kite::tool
