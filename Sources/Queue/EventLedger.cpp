#include "Queue/EventLedger.h"

#include "JSON/JSONDecoder.h"
#include "JSON/JSONWriter.h"

#include <algorithm>
#include <array>
#include <utility>

namespace kite {
namespace {

constexpr std::string_view trackedKey = "tracked", deliveredKey = "delivered",
                           droppedKey = "dropped";
constexpr std::array<std::pair<std::string_view, DropReason>, 6> reasons{
    {{"noConsent", &DroppedEvents::noConsent},
     {"notStarted", &DroppedEvents::notStarted},
     {"inBackground", &DroppedEvents::inBackground},
     {"notEncodable", &DroppedEvents::notEncodable},
     {"notUploadable", &DroppedEvents::notUploadable},
     {"lostOnDisk", &DroppedEvents::lostOnDisk}}};

std::uint64_t countAt(const JSONValue::Object& members, std::string_view key) {
  const auto* count = members.at(key);
  const auto number = count && count->integer() ? *count->integer() : 0;
  return static_cast<std::uint64_t>(std::max<std::int64_t>(number, 0));
}

Ledger decode(std::string_view note) {
  Ledger counts;
  const auto json = decodeJSON(note);
  if (!json || !json->object()) return counts;
  counts.tracked = countAt(*json->object(), trackedKey);
  counts.delivered = countAt(*json->object(), deliveredKey);
  const auto* dropped = json->object()->at(droppedKey);
  if (!dropped || !dropped->object()) return counts;
  for (const auto& [name, reason] : reasons)
    counts.dropped.*reason = countAt(*dropped->object(), name);
  return counts;
}

}  // namespace

void EventLedger::drop(DropReason reason) {
  _state.with([&](State& state) {
    ++state.counts.tracked;
    ++(state.counts.dropped.*reason);
  });
}

void EventLedger::append() {
  _state.with([](State& state) { ++state.counts.tracked; });
}

void EventLedger::remove(const RemovedEvents& removed) {
  _state.with([&](State& state) {
    auto& [tracked, pending, delivered, dropped] = state.counts;
    dropped.notEncodable += removed.notEncodable;
    dropped.lostOnDisk += removed.lostOnDisk;
    (removed.wereSent ? delivered : dropped.notUploadable) += removed.others;
    if (removed.wereSent) state.deliveredInThisRun += removed.others;
  });
}

void EventLedger::load(std::string_view note, std::uint64_t pending) {
  auto loaded = decode(note);
  const auto known = loaded.delivered + loaded.dropped.total() + pending;
  if (loaded.tracked > known) loaded.dropped.lostOnDisk += loaded.tracked - known;
  loaded.tracked = loaded.delivered + loaded.dropped.total() + pending;
  _state.with([&](State& state) {
    // What was dropped before the first queue was loaded is not in its note.
    if (!std::exchange(state.isLoaded, true)) {
      loaded.tracked += state.counts.tracked;
      for (const auto& [name, reason] : reasons)
        loaded.dropped.*reason += state.counts.dropped.*reason;
    }
    state.counts = loaded;
  });
}

std::string EventLedger::note() const {
  const auto counts = this->counts();
  std::string text;
  JSONWriter writer(text);
  const auto member = [&](std::string_view key, std::uint64_t count) {
    writer.key(key);
    writer.number(static_cast<std::int64_t>(count));
  };
  writer.beginObject();
  member(trackedKey, counts.tracked);
  member(deliveredKey, counts.delivered);
  writer.key(droppedKey);
  writer.beginObject();
  for (const auto& [name, reason] : reasons) member(name, counts.dropped.*reason);
  writer.endObject();
  writer.endObject();
  writer.finish();
  return text;
}

}  // namespace kite
