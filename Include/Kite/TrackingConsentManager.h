#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Platform/Larder.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <string_view>

namespace kite {

/// Keeps the user's consents and answers which user actions they allow. Copies share their state;
/// any thread may call.
struct KITE_EXPORT TrackingConsentManager {
  /// Reads the stored consents; without any the user has consented to all.
  std::function<void(std::shared_ptr<Larder::KVStorage>)> _start;
  /// Before `_start` none is allowed.
  std::function<bool(std::string_view)> _canTrackUserAction;
  std::function<void(bool)> _setAnalyticsTrackingConsent;
  std::function<void(bool)> _setProfilingTrackingConsent;
  std::function<void(const std::set<std::string>&)> _addTechnicalEvents;
  std::function<void(const std::set<std::string>&)> _addProfilingOnlyEvents;

  /// Keeps the consents in the store that it is started with.
  ///
  /// A change counts at once and is written before its call returns. Changes of one thread are
  /// written in their order. Of changes on several threads an earlier one may be written last; the
  /// call that wrote it then writes the latest, so that the store holds that when all have returned.
  /// No lock is held while the store is called. Change nothing while another thread starts it.
  static TrackingConsentManager live();
};

}  // namespace kite
