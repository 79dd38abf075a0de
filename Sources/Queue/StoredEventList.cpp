#include "Queue/StoredEventList.h"

#include "JSON/JSONDecoder.h"
#include "Queue/EventReader.h"

#include <optional>
#include <span>
#include <utility>

namespace kite {
namespace {

/// The event of a row that must be read, lost when its text is damaged. Nothing when the text is no
/// event; null when it cannot be read now, and waits for the next start.
std::optional<EventHandle> readRow(const Larder::SavedRow& row, EventReader& reader) {
  EventHandle event;
  bool isEvent = true;
  const auto error =
      row.place.file->read(std::span(&row.place, 1), [&](std::optional<std::string_view> text) {
        event = text ? reader.read(*text) : EncodedEvent::lost(row.tag);
        isEvent = event != nullptr;
      });
  if (error) return EventHandle();
  return isEvent ? std::optional(event) : std::nullopt;
}

// A row with a tag need not be read: it was an event when it was written.
std::optional<EventList> eventsOf(Larder::SavedList list) {
  EventReader reader;
  EventList events;
  events.skipOrdinals(list.next);
  for (auto& row : list.rows) {
    if (row.tag != UUID() && PendingEvent::canTell(row.place)) {
      events.append(std::move(row));
      continue;
    }
    auto event = readRow(row, reader);
    if (!event) return std::nullopt;
    if (*event) events.append(*std::move(event), row.ordinal);
  }
  return events;
}

std::optional<EventList> eventsOf(std::string_view array) {
  const auto json = decodeJSON(array);
  if (!json || !json->array()) return std::nullopt;
  EventReader reader;
  EventList events;
  for (const auto& element : *json->array()) {
    auto event = reader.read(element);
    if (!event) return std::nullopt;
    events.append(std::move(event));
  }
  return events;
}

}  // namespace

StoredEventList StoredEventList::load(const Larder::KVStorage& storage, std::string_view key) {
  if (auto list = storage.readList(key)) {
    auto note = std::move(list->note);
    auto events = eventsOf(*std::move(list));
    const bool isSaved = events.has_value();
    return {std::move(events).value_or(EventList()), isSaved, std::move(note)};
  }
  const auto value = storage.read(key);
  auto events = value ? eventsOf(value->data().bytes) : std::nullopt;
  return {std::move(events).value_or(EventList()), /*isSaved=*/false};
}

}  // namespace kite
