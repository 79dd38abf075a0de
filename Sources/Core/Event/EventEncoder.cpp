#include "Core/Event/EventEncoder.h"

#include <memory>
#include <utility>

namespace kite {
namespace {

Result<SharedText, EncodingError> encodeUser(const StoredEvent& event) {
  std::string text;
  if (auto error = EventText::appendUser(text, event.app, *event.user))
    return Failure{*std::move(error)};
  text.shrink_to_fit();
  return SharedText(std::make_shared<const std::string>(std::move(text)));
}

EventHandle unencodable(const StoredEvent& event, EncodingError error) {
  return std::make_shared<const PendingEvent>(event, std::move(error));
}

}  // namespace

EventHandle EventEncoder::encode(const StoredEvent& event) {
  EventText::HeadLayout head;
  _scratch.clear();
  if (auto error = EventText::appendHead(_scratch, event, head))
    return unencodable(event, *std::move(error));
  const UserText& user = userText(event);
  if (!user) return unencodable(event, user.error());
  if (auto error = EventText::appendData(_scratch, event.data))
    return unencodable(event, *std::move(error));
  return std::make_shared<const PendingEvent>(_scratch, head, *user);
}

const EventEncoder::UserText& EventEncoder::userText(const StoredEvent& event) {
  const bool isKnown = _last && _last->user.isSame(event.user) && _last->app == event.app;
  if (!isKnown) _last.emplace(Encoded{event.app, event.user, encodeUser(event)});
  return _last->text;
}

}  // namespace kite
