#pragma once

#include <Kite/KiteManager.h>

#include "Events/StoredEvent.h"
#include "Events/TrackedEvent.h"

#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// The event that everything is measured with: an action with ten properties, of a user with 25
/// fields.
namespace kite::bench {

inline constexpr std::size_t referenceSize = 1442;  // bytes of its JSON text
inline constexpr const char* application = "acme-trail-maps";
inline constexpr std::string_view actionName = "route_export_completed";

/// The properties as a host writes them; other numbers for another event.
inline KiteData actionProperties(int number = 0) {
  return {{"screen", "route_export_sheet"},
          {"button", "share_to_watch_app"},
          {"format", "gpx"},
          {"quality", 0.12},
          {"points", 3853 + number % 6000},
          {"height", 1306 + number % 7000},
          {"is_offline_map", true},
          {"layer_name", "Winter Contours Plus"},
          {"duration_ms", 2201 + number % 5000},
          {"source", "saved_route"}};
}

inline KiteData installation() {
  return {{"install_source", "search_ads"},
          {"campaign_id", 542370539},
          {"ad_group", "hiking-maps-exact-match-nz"}};
}
inline KiteData monetization() {
  return {{"plan", "yearly_trial_1"}, {"is_trial", true}, {"expires", 1767225600.5}};
}
inline std::map<std::string, std::int64_t> experiments() {
  return {{"onboarding_v3", 2}, {"route_planner", 1}, {"export_sheet", 0}};
}

inline User user() {
  JSONValue::Object info{
      {"is_frozen_app", Null{}},
      {"country", "NZ"},
      {"app_language", "en"},
      {"locale", "en_NZ"},
      {"app_version", "12.4.1"},
      {"bundle_version", "20311"},
      {"timezone",
       JSONValue::Object{
           {"seconds", 46800}, {"name", "Pacific/Auckland"}, {"daylight_saving", true}}},
      {"device", JSONValue::Object{{"ios_version", "17.4.1"},
                                   {"type", "Phone"},
                                   {"platform", "Phone15,2"},
                                   {"language", "en-NZ"},
                                   {"all_languages", JSONValue::Array{"en-NZ", "mi-NZ"}}}},
      {"kite_lib_version", "7.3.0"},
      {"experiment",
       JSONValue::Object{{"onboarding_v3", 2}, {"route_planner", 1}, {"export_sheet", 0}}},
      {"monetization", toJSONObject(monetization())},
      {"is_baseline", false},
      {"is_free", false}};
  return {.info = info.merged(toJSONObject(installation())),
          .ids = {{"user_id", "5F3C1B7E-8A40-4D1B-9C11-2B7A60F4E9D1"},
                  {"keychain_id", "0D8E2A44-3B19-4E63-A2F7-91C5D7B3E802"},
                  {"idfv", "B61F90C3-77AD-4C2E-8E05-6A4D12F89B37"}}};
}

/// The same identifier for the same number. That of 0 is the reference event's own.
inline UUID eventID(int number) {
  if (number == 0) return *UUID::parse("79690975-FBDE-45B0-A2A3-7357AE2CC59B");
  std::mt19937_64 bits(static_cast<std::uint64_t>(number));
  UUID id;
  for (auto& byte : id.bytes) byte = static_cast<std::uint8_t>(bits());
  return id;
}

/// The reference event, or another one like it.
inline TrackedEvent trackedEvent(std::shared_ptr<const EventOrigin> origin, int number = 0) {
  UserAction::Payload action{
      .id = eventID(number),
      .timestamp = 1765432100.123456 + number,
      .actionKind = actionName,
      .actionInfo = actionProperties(number),
      .secondsFromSessionStart = 1.233456 + number,
      .sessionId = UUID::parse("000000C3-C2FF-414F-A90C-453A5C31AD4D"),
      .processId = *UUID::parse("5097E637-6BE5-4D57-AFFB-1EF3DE0D42ED"),
      .lastForegroundSessionId = UUID::parse("E2A59A80-94EC-4328-A974-2E6D85EC51AE"),
      .isBackgroundEvent = false};
  return {std::move(action), std::move(origin)};
}
inline StoredEvent event(const Shared<User>& user, int number = 0) {
  return trackedEvent(std::make_shared<EventOrigin>(EventOrigin{application, user}), number)
      .record();
}

/// The JSON texts of so many events.
inline std::vector<std::string> eventTexts(int count) {
  const Shared<User> everybody(user());
  std::vector<std::string> texts(static_cast<std::size_t>(count));
  for (int number = 0; auto& text : texts) {
    if (appendJSON(text, event(everybody, number++))) text.clear();
  }
  return texts;
}

}  // namespace kite::bench
