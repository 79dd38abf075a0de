#include "Upload/ServerResponse.h"

#include "JSON/JSONCoding.h"
#include "JSON/JSONDecoder.h"

namespace kite {

std::optional<ServerResponse> decodeServerResponse(std::string_view json) {
  const auto decoded = decodeJSON(json);
  if (!decoded) return std::nullopt;
  RecordReader reader(*decoded);
  return reader.whole(
      ServerResponse{.delta = reader.required<double>("delta"),
                     .lastEventTimestamp = reader.required<double>("last_event_timestamp")});
}

}  // namespace kite
