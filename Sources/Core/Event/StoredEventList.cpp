#include "Core/Event/StoredEventList.h"

#include "Core/Event/EventReader.h"

#include <simdjson.h>

#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kite {
namespace {

using StoredRows = std::vector<Larder::StoredValue::StoredRow>;

std::optional<EventList> readRows(const StoredRows& rows) {
  EventReader reader;
  EventList events;
  for (const auto& [ordinal, text] : rows) {
    auto event = reader.read(text);
    if (!event) return std::nullopt;
    events.append(std::move(event), ordinal);
  }
  return events;
}

/// Walks the array without building values; what is between the elements is checked here, the
/// elements by the reader.
std::optional<EventList> readArray(std::string_view text) {
  std::string padded;
  padded.reserve(text.size() + simdjson::SIMDJSON_PADDING);
  padded.assign(text).append(simdjson::SIMDJSON_PADDING, ' ');
  simdjson::ondemand::parser parser;
  simdjson::ondemand::document document;
  simdjson::ondemand::array elements;
  const auto error = parser.iterate(padded.data(), text.size(), padded.size()).get(document);
  // Memory that ran out says nothing about the text.
  if (error == simdjson::MEMALLOC) throw std::bad_alloc();
  if (error || document.get_array().get(elements)) return std::nullopt;
  EventReader reader;
  EventList events;
  for (auto element : elements) {
    simdjson::ondemand::object object;
    std::string_view elementText;
    if (element.get_object().get(object) || object.raw_json().get(elementText)) return std::nullopt;
    auto event = reader.read(elementText.substr(0, elementText.rfind('}') + 1));
    if (!event) return std::nullopt;
    events.append(std::move(event));
  }
  const bool isAtEnd = document.current_location().error() == simdjson::OUT_OF_BOUNDS;
  return isAtEnd ? std::optional(std::move(events)) : std::nullopt;
}

}  // namespace

StoredEventList StoredEventList::load(const Larder::StoredValue* value) {
  const StoredRows* rows = value ? value->rows() : nullptr;
  if (!rows) {
    auto events = value ? readArray(value->data().bytes) : std::nullopt;
    return {.events = std::move(events).value_or(EventList()), .isSaved = false};
  }
  auto events = readRows(*rows);
  const bool isSaved = events.has_value();
  return {.events = std::move(events).value_or(EventList()), .isSaved = isSaved};
}

}  // namespace kite
