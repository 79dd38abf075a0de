#pragma once

#include "Events/EncodedEvent.h"
#include "Upload/Gzip.h"

#include <optional>

namespace kite {

/// The body of an upload before its compression.
struct ServerBody {
  std::optional<double> delta;
  std::optional<double> lastEventTimestamp;
  EventBatch events;

  /// Writes the JSON text, every event stamped with `requestTimestamp`. Without an error it is
  /// whole; with one, of no use.
  [[nodiscard]] std::optional<EncodingError> write(Gzip& out, double requestTimestamp) const;
};

}  // namespace kite
