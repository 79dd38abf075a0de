#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kite {

/// The kind of an event: one of the library's own, or a table name of the host's.
class EventType {
 public:
  enum class Case : std::uint8_t {
    custom,
    session,
    experimentSegmentsReceived,
    install,
    userAction,
    userInfoUpdated,
    debugEvent
  };

  /// One of the six fixed kinds; not `Case::custom`.
  EventType(Case fixed) : _case(fixed) {}
  static EventType custom(std::string name);

  /// The text on the wire. A custom event named like the session, experiment or install event stops
  /// the process; the three other names pass, on purpose, and cannot be told from the built-in
  /// kinds.
  std::string_view rawValue() const;

  /// The fixed kind of that text, else a custom one; nothing for the empty text.
  static std::optional<EventType> fromRawValue(std::string_view text);

  Case kind() const { return _case; }

  friend bool operator==(const EventType&, const EventType&) = default;

 private:
  Case _case;
  std::string _name;
};

}  // namespace kite
