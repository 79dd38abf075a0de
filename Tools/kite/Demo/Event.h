#pragma once

#include <Kite/JSONValue.h>

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace kite::tool {

/// An event as the demo meets it again, in the host's queue or at the collector.
struct Event {
  std::string id;
  std::string type;
  JSONValue data;
  std::int64_t duplicates = 0;  ///< how often it arrived beyond the first time

  /// What the host attached to it: its own part of the data.
  const JSONValue::Object* content() const;
  /// The number that the demo gave it; nothing when the library made the event by itself.
  std::optional<std::int64_t> sequence() const;
  /// What tells it from others of its type that the library makes, such as "start".
  std::string detail() const;
};

inline constexpr const char* sequenceKey = "demo_sequence";

/// The events that wait in the queue of the host with that state folder, as last saved.
std::vector<Event> pendingEvents(const std::filesystem::path& state);

/// The events in a collector's database.
std::vector<Event> deliveredEvents(const std::filesystem::path& database);
std::size_t deliveredCount(const std::filesystem::path& database);

}  // namespace kite::tool
