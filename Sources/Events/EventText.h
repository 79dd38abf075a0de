#pragma once

#include "Events/StoredEvent.h"
#include "Events/UserAction.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

/// The three pieces that an event's JSON object is joined from, in this order.
///
/// Each appends its piece to `out`; on an error `out` keeps what was written before it, and the
/// error's path begins at the event.
namespace kite::EventText {

/// Where things are in the head of an event's text.
struct HeadLayout {
  std::uint32_t idBegin;  ///< of the identifier as it is written, between its quotes
  std::uint32_t idEnd;
  std::uint32_t stampBegin;  ///< of the event's own request timestamp, or of the place for one
  std::uint32_t stampEnd;    ///< the end of the head
};

/// What an event begins with.
struct Head {
  std::string_view type;
  std::string_view id;
  double timestamp;
  std::optional<double> requestTimestamp;
};

/// `{"type":…,"id":…,"timestamp":…` and, when the event has one, its request timestamp.
[[nodiscard]] std::optional<EncodingError> appendHead(std::string& out, const Head& head,
                                                      HeadLayout& layout);
inline Head headOf(const StoredEvent& event) {
  return {event.type.rawValue(), event.id, event.timestamp, event.requestTimestamp};
}

/// `,"request_timestamp":…`
[[nodiscard]] std::optional<EncodingError> appendRequestTimestamp(std::string& out, double seconds);
/// `,"app":…,"user":{…}`
[[nodiscard]] std::optional<EncodingError> appendUser(std::string& out, std::string_view app,
                                                      const User& user);
/// `,"data":{…}}`
[[nodiscard]] std::optional<EncodingError> appendData(std::string& out,
                                                      const JSONValue::Object& data);
[[nodiscard]] std::optional<EncodingError> appendData(std::string& out,
                                                      const UserAction::Payload& data);

}  // namespace kite::EventText
