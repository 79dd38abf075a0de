#pragma once

#include <Kite/Platform/Larder.h>

#include "Core/JSONCoding.h"

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

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

/// Keeps the user's consents and answers which user actions they allow. Copies share their state;
/// any thread may call.
struct TrackingConsentManager {
  std::function<void(std::shared_ptr<Larder::KVStorage>)> _start;
  std::function<bool(std::string_view)> _canTrackUserAction;
  std::function<void(bool)> _setAnalyticsTrackingConsent;
  std::function<void(bool)> _setProfilingTrackingConsent;
  std::function<void(const std::set<std::string>&)> _addTechnicalEvents;
  std::function<void(const std::set<std::string>&)> _addProfilingOnlyEvents;

  static TrackingConsentManager live();
};

}  // namespace kite
