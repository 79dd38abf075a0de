#include "Events/StoredEvent.h"

#include "Events/EventText.h"
#include "JSON/JSONCoding.h"

#include <utility>

namespace kite {

template <>
struct JSONCoding<User> {
  static std::optional<User> decode(const JSONValue& json) {
    RecordReader reader(json);
    User user{.info = reader.required<JSONValue::Object>("info"), .ids = {}};
    for (const auto& [name, id] : reader.required<JSONValue::Object>("ids")) {
      if (!id.string()) return std::nullopt;
      user.ids.emplace_hint(user.ids.end(), name, *id.string());
    }
    return reader.whole(std::move(user));
  }
};

std::optional<EncodingError> appendJSON(std::string& out, const StoredEvent& event) {
  JSONWriter writer(out);
  EventText::writeHead(writer,
                       {event.type.rawValue(), event.id, event.timestamp, event.requestTimestamp});
  EventText::writeUser(writer, event.app, *event.user);
  writer.key("data");
  writer.value(event.data);
  writer.endObject();
  return writer.finish();
}

std::optional<StoredEvent> decodeStoredEvent(const JSONValue& json) {
  RecordReader reader(json);
  const auto type = EventType::fromRawValue(reader.required<std::string>("type"));
  if (!type) return std::nullopt;
  return reader.whole(StoredEvent{.type = *type,
                                  .id = reader.required<std::string>("id"),
                                  .timestamp = reader.required<double>("timestamp"),
                                  .requestTimestamp = reader.optional<double>("request_timestamp"),
                                  .app = reader.required<std::string>("app"),
                                  .user = Shared<User>(reader.required<User>("user")),
                                  .data = reader.required<JSONValue::Object>("data")});
}

}  // namespace kite
