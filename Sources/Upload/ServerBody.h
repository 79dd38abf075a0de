#pragma once

#include <Kite/Base/Result.h>

#include "Events/EncodedEvent.h"

#include <optional>
#include <string>

namespace kite {

/// The body of an upload before its compression.
struct ServerBody {
  std::optional<double> delta;
  std::optional<double> lastEventTimestamp;
  EventBatch events;

  /// The JSON text, every event stamped with `requestTimestamp`.
  Result<std::string, EncodingError> text(double requestTimestamp) const;
};

}  // namespace kite
