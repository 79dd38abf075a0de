#include "JSON/JSONDecoder.h"
#include "Queue/StoredEventList.h"
#include "Support/AppendRows.h"
#include "Support/InMemoryKVStorage.h"
#include "Support/Rows.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string_view>
#include <vector>

using namespace kite;

namespace {

/// The events of an array, read in the plain way.
std::optional<std::vector<StoredEvent>> decodeArray(std::string_view text) {
  const auto json = decodeJSON(text);
  if (!json || !json->array()) return std::nullopt;
  std::vector<StoredEvent> events;
  for (const auto& element : *json->array()) {
    auto event = decodeStoredEvent(element);
    if (!event) return std::nullopt;
    events.push_back(*std::move(event));
  }
  return events;
}

/// Whether the text of an event, where it has one, stands for the event that it gives.
bool isSound(const EncodedEvent& pending) {
  const auto event = pending.event();
  if (event.id != pending.id()) return false;
  std::string wire;
  if (pending.appendStamped(wire, 20.5)) return pending.encodingError() != nullptr;
  auto stamped = event;
  stamped.requestTimestamp = 20.5;
  const auto back = decodeJSON(wire);
  return back && decodeStoredEvent(*back) == stamped;
}

void checkArray(std::string_view text) {
  test::InMemoryKVStorage storage;
  storage.put("k", std::string(text));
  const auto loaded = StoredEventList::load(storage, "k").events;
  const auto expected = decodeArray(text).value_or(std::vector<StoredEvent>());
  if (loaded.size() != expected.size()) std::abort();
  const auto events = *loaded.first(loaded.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    if (!isSound(*events[i]) || events[i]->event() != expected[i]) std::abort();
  }
}

void checkRows(std::string_view text) {
  std::vector<Larder::Row> rows;
  while (!text.empty()) {
    const std::string_view line = text.substr(0, text.find('\n'));
    rows.push_back(test::row(rows.size(), std::string(line)));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
  }
  const std::size_t count = rows.size();
  test::InMemoryKVStorage storage;
  test::appendRows(storage, "k", std::move(rows));
  const auto loaded = StoredEventList::load(storage, "k");
  if (loaded.isSaved ? loaded.events.size() != count : !loaded.events.empty()) std::abort();
  for (const auto& event : *loaded.events.first(loaded.events.size())) {
    if (!isSound(*event)) std::abort();
  }
}

}  // namespace

/// Any bytes as the stored queue, as one array and as a list of lines.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(bytes), size);
  checkArray(text);
  checkRows(text);
  return 0;
}
