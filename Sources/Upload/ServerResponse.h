#pragma once

#include <optional>
#include <string_view>

namespace kite {

/// The body of a successful reply; the next request sends both numbers back.
struct ServerResponse {
  double delta;
  double lastEventTimestamp;

  friend bool operator==(const ServerResponse&, const ServerResponse&) = default;
};

/// Nothing when a key is missing or of the wrong type.
std::optional<ServerResponse> decodeServerResponse(std::string_view json);

}  // namespace kite
