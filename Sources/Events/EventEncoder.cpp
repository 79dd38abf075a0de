#include "Events/EventEncoder.h"

#include <memory>
#include <utility>

namespace kite {
namespace {

Result<SharedText, EncodingError> encodeUser(std::string_view app, const User& user) {
  std::string text;
  JSONWriter writer(text);
  writer.resumeObject();
  EventText::writeUser(writer, app, user);
  if (writer.finish()) return Failure{*writer.error()};
  text.shrink_to_fit();
  return SharedText(std::make_shared<const std::string>(std::move(text)));
}

}  // namespace

EventHandle EventEncoder::encode(const StoredEvent& event) {
  const EventText::Head head{event.type.rawValue(), event.id, event.timestamp,
                             event.requestTimestamp};
  auto encoded =
      encode(head, event.app, event.user, [&](JSONWriter& writer) { writer.value(event.data); });
  return encoded ? *std::move(encoded)
                 : std::make_shared<const EncodedEvent>(event, encoded.error());
}

EventHandle EventEncoder::encode(const TrackedEvent& event) {
  const EventType type = event.type();
  const std::string id = event.id();
  const EventText::Head head{type.rawValue(), id, event.timestamp(), event.requestTimestamp()};
  auto encoded =
      encode(head, event.app(), event.user(), [&](JSONWriter& writer) { event.writeData(writer); });
  return encoded ? *std::move(encoded)
                 : std::make_shared<const EncodedEvent>(event.record(), encoded.error());
}

template <class WriteData>
Result<EventHandle, EncodingError> EventEncoder::encode(const EventText::Head& head,
                                                        std::string_view app,
                                                        const Shared<User>& user,
                                                        WriteData writeData) {
  _scratch.clear();
  JSONWriter writer(_scratch);
  const auto layout = EventText::writeHead(writer, head);
  if (writer.error()) return Failure{*writer.error()};
  const UserText& text = userText(app, user);
  if (!text) return Failure{text.error()};
  writer.key("data");
  writeData(writer);
  writer.endObject();
  if (writer.finish()) return Failure{*writer.error()};
  return EventHandle(std::make_shared<const EncodedEvent>(_scratch, layout, *text));
}

const EventEncoder::UserText& EventEncoder::userText(std::string_view app,
                                                     const Shared<User>& user) {
  const bool isKnown = _last && _last->user.isSame(user) && _last->app == app;
  if (!isKnown) _last.emplace(Encoded{std::string(app), user, encodeUser(app, *user)});
  return _last->text;
}

}  // namespace kite
