#include "Queue/StoredEventList.h"

#include "Queue/EventReader.h"

#include <simdjson.h>

#include <cstdint>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kite {
namespace {

/// The events of a list, unless any of its elements is none.
class EventRows final : public Larder::ListReader {
 public:
  void begin(std::uint64_t next) override {
    _events.emplace();
    _events->skipOrdinals(next);
  }
  void take(std::uint64_t ordinal, std::string_view text) override {
    if (!_events) return;
    if (auto event = _reader.read(text)) {
      _events->append(std::move(event), ordinal);
    } else {
      _events.reset();
    }
  }
  std::optional<EventList> events() && { return std::move(_events); }

 private:
  EventReader _reader;
  std::optional<EventList> _events;
};

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

StoredEventList queue(std::optional<EventList> events, bool isList) {
  const bool isSaved = isList && events.has_value();
  return {.events = std::move(events).value_or(EventList()), .isSaved = isSaved};
}

}  // namespace

StoredEventList StoredEventList::load(const Larder::KVStorage& storage, std::string_view key) {
  EventRows rows;
  if (storage.readList(key, rows)) return queue(std::move(rows).events(), /*isList=*/true);
  const auto value = storage.read(key);
  // What has rows is a list that could not be read.
  const bool isBytes = value && !value->rows();
  return queue(isBytes ? readArray(value->data().bytes) : std::nullopt, /*isList=*/false);
}

}  // namespace kite
