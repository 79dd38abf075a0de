#include "Queue/EventReader.h"

#include "JSON/JSONDecoder.h"

#include <cstdint>
#include <optional>
#include <string>

namespace kite {
namespace {

/// Goes along the head of an event's text. Each step goes past what it names, or is false and the
/// walk is over.
class HeadScanner {
 public:
  explicit HeadScanner(std::string_view text) : _text(text) {}

  std::uint32_t position() const { return static_cast<std::uint32_t>(_position); }

  bool skip(std::string_view literal) {
    if (!_text.substr(_position).starts_with(literal)) return false;
    _position += literal.size();
    return true;
  }
  bool skipString() {
    if (!skip("\"")) return false;
    for (; _position < _text.size(); ++_position) {
      if (_text[_position] == '"') return skip("\"");
      if (_text[_position] == '\\') ++_position;
    }
    return false;
  }
  bool skipNumber() {
    const auto begin = _position;
    while (_position < _text.size() && isOfNumber(_text[_position])) ++_position;
    return _position < _text.size() && _position > begin;
  }

 private:
  static bool isOfNumber(char c) {
    return (c >= '0' && c <= '9') || c == '.' || c == '+' || c == '-' || c == 'e' || c == 'E';
  }

  std::string_view _text;
  std::size_t _position = 0;
};

std::optional<EventText::HeadLayout> layoutOf(std::string_view text) {
  HeadScanner scan(text);
  EventText::HeadLayout head{};
  if (!scan.skip(R"({"type":)") || !scan.skipString() || !scan.skip(R"(,"id":)"))
    return std::nullopt;
  head.idBegin = scan.position() + 1;
  if (!scan.skipString()) return std::nullopt;
  head.idEnd = scan.position() - 1;
  if (!scan.skip(R"(,"timestamp":)") || !scan.skipNumber()) return std::nullopt;
  head.stampBegin = scan.position();
  if (scan.skip(R"(,"request_timestamp":)") && !scan.skipNumber()) return std::nullopt;
  head.stampEnd = scan.position();
  return head;
}

}  // namespace

EventHandle EventReader::readSaved(std::string_view text) {
  const auto head = layoutOf(text);
  return head ? std::make_shared<const EncodedEvent>(std::string(text), *head, nullptr)
              : read(text);
}

EventHandle EventReader::read(std::string_view text) {
  const auto json = decodeJSON(text);
  return json ? read(*json) : nullptr;
}

EventHandle EventReader::read(const JSONValue& json) {
  const auto event = decodeStoredEvent(json);
  return event ? _encoder.encode(*event) : nullptr;
}

}  // namespace kite
