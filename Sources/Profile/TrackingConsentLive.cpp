#include <Kite/Base/FatalError.h>
#include <Kite/TrackingConsentManager.h>

#include "Base/Guarded.h"
#include "Events/TechnicalEvents.h"
#include "Profile/TrackingConsent.h"
#include "Profile/TypedStorage.h"

#include <atomic>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>

namespace kite {

JSONValue JSONCoding<TrackingConsent>::encode(const TrackingConsent& consent) {
  return JSONValue::Object{{"analytics", consent.analytics}, {"profiling", consent.profiling}};
}

std::optional<TrackingConsent> JSONCoding<TrackingConsent>::decode(const JSONValue& json) {
  RecordReader reader(json);
  return reader.whole(TrackingConsent{.analytics = reader.required<bool>("analytics"),
                                      .profiling = reader.required<bool>("profiling")});
}

namespace {

constexpr Larder::Key<TrackingConsent> trackingConsentKey{"kite_tracking_consent"};

using Names = std::set<std::string, std::less<>>;

Names technicalNames() {
  Names names;
  for (const auto event : allTechnicalEvents) names.emplace(rawValue(event));
  return names;
}

/// The state behind the functions of one live manager and its copies.
class LiveConsent {
 public:
  void start(std::shared_ptr<Larder::KVStorage> storage) {
    const auto stored = load(*storage, trackingConsentKey);
    _state.with([&](State& state) {
      decide(state, stored ? *stored : TrackingConsent{});
      if (state.latest.storage != storage) state.latest = {};
      std::swap(state.storage, storage);  // the one of before is released after the lock
    });
  }

  bool canTrackUserAction(std::string_view name) {
    if (_allowsAll.load(std::memory_order_acquire)) return true;
    return _state.with([&](const State& state) {
      if (!state.consent) return false;
      if (state.technical.contains(name)) return true;
      if (state.profilingOnly.contains(name)) return state.consent->profiling;
      return state.consent->analytics || state.consent->profiling;
    });
  }

  void set(bool TrackingConsent::*which, bool value) {
    auto change = made(which, value);
    if (!change.storage)
      fatalError("TrackingConsentManager not started yet", {"Kite/TrackingConsent+Live", "", 0});
    // Another thread's later change may be in the store already: then it belongs there again.
    for (std::uint64_t written = 0; written != change.number; change = latestAfter(change)) {
      save(*change.storage, trackingConsentKey, change.consent);
      written = change.number;
    }
  }

  void addTechnicalEvents(const std::set<std::string>& names) {
    _state.with([&](State& state) { state.technical.insert(names.begin(), names.end()); });
  }
  void addProfilingOnlyEvents(const std::set<std::string>& names) {
    _state.with([&](State& state) { state.profilingOnly.insert(names.begin(), names.end()); });
  }

 private:
  struct Change {
    std::uint64_t number = 0;
    std::shared_ptr<Larder::KVStorage> storage;
    TrackingConsent consent;
  };
  struct State {
    std::shared_ptr<Larder::KVStorage> storage;  // null until started
    std::optional<TrackingConsent> consent;      // unknown until started
    Change latest;
    std::uint64_t changes = 0;
    Names technical = technicalNames();
    Names profilingOnly;
  };

  /// Without a store before `start`: nothing is changed then.
  Change made(bool TrackingConsent::*which, bool value) {
    return _state.with([&](State& state) {
      if (!state.storage) return Change{};
      auto consent = *state.consent;
      consent.*which = value;
      decide(state, consent);
      state.latest = {++state.changes, state.storage, consent};
      return state.latest;
    });
  }
  Change latestAfter(const Change& change) {
    return _state.with([&](const State& state) {
      return state.latest.storage == change.storage ? state.latest : change;
    });
  }

  void decide(State& state, TrackingConsent consent) {
    state.consent = consent;
    _allowsAll.store(consent.analytics && consent.profiling, std::memory_order_release);
  }

  Guarded<State> _state;
  std::atomic<bool> _allowsAll = false;  // so that no name needs to be looked up
};

}  // namespace

TrackingConsentManager TrackingConsentManager::live() {
  const auto live = std::make_shared<LiveConsent>();
  return {
      ._start = [live](auto storage) { live->start(std::move(storage)); },
      ._canTrackUserAction = [live](auto name) { return live->canTrackUserAction(name); },
      ._setAnalyticsTrackingConsent =
          [live](bool value) { live->set(&TrackingConsent::analytics, value); },
      ._setProfilingTrackingConsent =
          [live](bool value) { live->set(&TrackingConsent::profiling, value); },
      ._addTechnicalEvents = [live](const auto& names) { live->addTechnicalEvents(names); },
      ._addProfilingOnlyEvents = [live](const auto& names) { live->addProfilingOnlyEvents(names); },
  };
}

}  // namespace kite
