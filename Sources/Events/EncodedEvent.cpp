#include "Events/EncodedEvent.h"

#include "Base/UUIDText.h"
#include "JSON/JSONDecoder.h"

#include <utility>

namespace kite {
namespace {

// The one event that has a text and does not decode is a custom one without a name.
StoredEvent decoded(const JSONValue& json) {
  if (auto event = decodeStoredEvent(json)) return *std::move(event);
  auto members = *json.object();
  members.insertOrAssign("type", "nameless");
  auto event = *decodeStoredEvent(members);
  event.type = EventType::custom("");
  return event;
}

}  // namespace

EncodedEvent::EncodedEvent(std::string ownText, EventText::HeadLayout head, SharedText userText)
    : _ownText(std::move(ownText)), _userText(std::move(userText)), _head(head) {
  _ownText.shrink_to_fit();
}

EncodedEvent::EncodedEvent(StoredEvent event, EncodingError error)
    : _failed(new Failed{std::move(event), std::move(error)}) {}

EventHandle EncodedEvent::lost(const UUID& id) {
  auto event = std::make_shared<EncodedEvent>(std::string(), EventText::HeadLayout{}, nullptr);
  event->_lostId = id;
  return event;
}

std::optional<std::string_view> EncodedEvent::plainId() const {
  if (_failed) return _failed->event.id;
  const auto written =
      std::string_view(_ownText).substr(_head.idBegin, _head.idEnd - _head.idBegin);
  const bool hasEscapes = written.find('\\') != std::string_view::npos;
  return hasEscapes ? std::nullopt : std::optional(written);
}

std::string EncodedEvent::id() const {
  if (isLost()) return _lostId.text();
  const auto plain = plainId();
  return plain ? std::string(*plain) : event().id;
}

UUID EncodedEvent::tag() const {
  constexpr std::string_view withoutType = R"({"type":"",)";
  if (_failed || _ownText.starts_with(withoutType)) return {};
  if (isLost()) return _lostId;
  const auto id = plainId();
  const auto uuid = id ? UUID::parse(*id) : std::nullopt;
  return uuid && UUIDText(*uuid).view() == *id ? *uuid : UUID();
}

void EncodedEvent::appendTo(std::string& text) const {
  if (_failed) return;
  text.append(_ownText, 0, _head.stampEnd);
  if (_userText) text += *_userText;
  text.append(_ownText, _head.stampEnd);
}

std::optional<EncodingError> EncodedEvent::appendStamped(std::string& out,
                                                         double requestTimestamp) const {
  if (_failed) {
    StoredEvent stamped = _failed->event;
    stamped.requestTimestamp = requestTimestamp;
    return appendJSON(out, stamped);
  }
  out.append(_ownText, 0, _head.stampBegin);
  if (auto error = EventText::appendRequestTimestamp(out, requestTimestamp)) return error;
  if (_userText) out += *_userText;
  out.append(_ownText, _head.stampEnd);
  return std::nullopt;
}

StoredEvent EncodedEvent::event() const {
  if (_failed) return _failed->event;
  std::string text;
  text.reserve(size());
  appendTo(text);
  return decoded(*decodeJSON(text));
}

}  // namespace kite
