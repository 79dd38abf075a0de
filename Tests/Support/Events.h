#pragma once

#include "Events/EventEncoder.h"
#include "Events/StoredEvent.h"
#include "Queue/EventList.h"
#include "Queue/PendingChange.h"

#include <limits>
#include <memory>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace kite::test {

inline Shared<User> aUser(std::string country = "NZ") {
  return User{.info = {{"country", std::move(country)}}, .ids = {{"user_id", "U-1"}}};
}

inline StoredEvent anEvent(std::string id, Shared<User> user = aUser()) {
  return {.type = EventType::Case::userAction,
          .id = std::move(id),
          .timestamp = 12.5,
          .requestTimestamp = std::nullopt,
          .app = "trail-maps",
          .user = std::move(user),
          .data = {{"action_info", JSONValue::Object{{"price", 9.5}}}, {"action_kind", "buy"}}};
}

/// The stored form of `anEvent(id)`.
inline std::string textOfAnEvent(const std::string& id) {
  return R"({"type":"UserAction","id":")" + id +
         R"(","timestamp":12.5,"app":"trail-maps","user":{"info":{"country":"NZ"},)"
         R"("ids":{"user_id":"U-1"}},"data":{"action_info":{"price":9.5},"action_kind":"buy"}})";
}

/// An event whose price, and nothing else, has no JSON text.
inline StoredEvent anUnencodableEvent(std::string id) {
  auto event = anEvent(std::move(id));
  const double price = std::numeric_limits<double>::quiet_NaN();
  event.data.insertOrAssign("action_info", JSONValue::Object{{"price", price}});
  return event;
}

inline EventHandle pending(const StoredEvent& event) { return EventEncoder().encode(event); }

/// The event on its way to the storage.
inline std::unique_ptr<PendingChange> aChange(StoredEvent event) {
  return std::make_unique<PendingChange>(std::move(event));
}
/// The record of the event that is on its way.
inline StoredEvent recordOf(const PendingChange& change) {
  const auto* event = std::get_if<TrackedEvent>(&change.content);
  return event ? event->record() : std::get<StoredEvent>(change.content);
}

inline std::string storedText(const Larder::ElementText& element) {
  std::string text;
  element.appendTo(text);
  return text;
}

inline EventBatch all(const EventList& events) { return *events.first(events.size()); }

inline std::vector<std::string> idsOf(const EventBatch& batch) {
  std::vector<std::string> ids;
  for (const auto& event : batch) ids.push_back(event->id());
  return ids;
}
inline std::vector<std::string> idsOf(const EventList& events) { return idsOf(all(events)); }

}  // namespace kite::test
