#pragma once

#include "JSON/JSONCoding.h"

#include <optional>

namespace kite {

/// What the user allows.
struct TrackingConsent {
  bool analytics = true;
  bool profiling = true;

  friend bool operator==(const TrackingConsent&, const TrackingConsent&) = default;
};

template <>
struct JSONCoding<TrackingConsent> {
  static JSONValue encode(const TrackingConsent& consent);
  static std::optional<TrackingConsent> decode(const JSONValue& json);
};

}  // namespace kite
