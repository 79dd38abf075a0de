#include "Events/EventEncoder.h"

#include "Base/UUIDText.h"

#include <memory>
#include <utility>

namespace kite {
namespace {

Result<SharedText, EncodingError> encodeUser(std::string_view app, const User& user) {
  std::string text;
  if (auto error = EventText::appendUser(text, app, user)) return Failure{*std::move(error)};
  text.shrink_to_fit();
  return SharedText(std::make_shared<const std::string>(std::move(text)));
}

}  // namespace

EventHandle EventEncoder::encode(const StoredEvent& event) {
  auto encoded = encode(EventText::headOf(event), event.app, event.user, event.data);
  return encoded ? *std::move(encoded)
                 : std::make_shared<const EncodedEvent>(event, encoded.error());
}

EventHandle EventEncoder::encode(const UserAction& action, std::string_view app) {
  const EventType type = action.type();
  const UUIDText id(action.payload().id);
  const EventText::Head head{type.rawValue(), id.view(), action.timestamp(), std::nullopt};
  auto encoded = encode(head, app, action.user(), action.payload());
  return encoded ? *std::move(encoded) : encode(StoredEvent::from(action, std::string(app)));
}

template <class Data>
Result<EventHandle, EncodingError> EventEncoder::encode(const EventText::Head& head,
                                                        std::string_view app,
                                                        const Shared<User>& user,
                                                        const Data& data) {
  EventText::HeadLayout layout;
  _scratch.clear();
  if (auto error = EventText::appendHead(_scratch, head, layout)) return Failure{*std::move(error)};
  const UserText& text = userText(app, user);
  if (!text) return Failure{text.error()};
  if (auto error = EventText::appendData(_scratch, data)) return Failure{*std::move(error)};
  return EventHandle(std::make_shared<const EncodedEvent>(_scratch, layout, *text));
}

const EventEncoder::UserText& EventEncoder::userText(std::string_view app,
                                                     const Shared<User>& user) {
  const bool isKnown = _last && _last->user.isSame(user) && _last->app == app;
  if (!isKnown) _last.emplace(Encoded{std::string(app), user, encodeUser(app, *user)});
  return _last->text;
}

}  // namespace kite
