#pragma once

#include "JSON/JSONWriter.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kite {

struct User;

/// The pieces that an event's JSON object is joined from. Each is written in its turn, within the
/// event's object, so that the path of an error begins at the event.
namespace EventText {

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

/// Begins the object: `{"type":…,"id":…,"timestamp":…` and the request timestamp, if there is one.
HeadLayout writeHead(JSONWriter& writer, const Head& head);
/// `,"app":…,"user":{…}`
void writeUser(JSONWriter& writer, std::string_view app, const User& user);

/// `,"request_timestamp":…`
[[nodiscard]] std::optional<EncodingError> appendRequestTimestamp(std::string& out, double seconds);

}  // namespace EventText
}  // namespace kite
