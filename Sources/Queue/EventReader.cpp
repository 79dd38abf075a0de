#include "Queue/EventReader.h"

#include "JSON/JSONDecoder.h"
#include "Queue/TextScanner.h"

#include <simdjson.h>

#include <initializer_list>
#include <utility>

namespace kite {

/// What a parser can tell of a text without its values being built. The text comes in pieces.
class EventReader::Checker {
 public:
  using Pieces = std::initializer_list<std::string_view>;

  /// Whether the text is one JSON object of so many members, nested no deeper than
  /// what encodes.
  bool isObject(Pieces pieces, std::size_t members) {
    if (!parse(pieces)) return false;
    simdjson::dom::object object;
    return _root.get_object().get(object) == simdjson::SUCCESS && object.size() == members;
  }
  /// Whether the text is that about application and user, and all identifiers in it are strings.
  bool isUserText(std::string_view text) {
    constexpr std::size_t appAndUser = 2;
    return isObject({"{", text.substr(1), "}"}, appAndUser) && hasStringIds();
  }
  /// What was looked at last.
  std::string_view text() const { return {_padded.data(), _size}; }

 private:
  bool hasStringIds() const {
    simdjson::dom::object ids;
    if (_root["user"]["ids"].get(ids) != simdjson::SUCCESS) return false;
    for (const auto& id : ids) {
      if (!id.value.is_string()) return false;
    }
    return true;
  }
  bool parse(Pieces pieces) {
    _size = 0;
    for (const auto piece : pieces) {
      if (!makeRoom(_size + piece.size())) return false;
      piece.copy(_padded.data() + _size, piece.size());
      _size += piece.size();
    }
    constexpr bool isPadded = false;
    return _parser.parse(_padded.data(), _size, isPadded).get(_root) == simdjson::SUCCESS;
  }
  bool makeRoom(std::size_t size) {
    if (_padded.size() >= size + simdjson::SIMDJSON_PADDING) return true;
    const std::size_t room = 2 * size + simdjson::SIMDJSON_PADDING;
    // The parser does not count an empty innermost container, and refuses the very depth given.
    if (_parser.allocate(room, maximumEncodedDepth) != simdjson::SUCCESS) return false;
    _padded.resize(room);
    return true;
  }

  simdjson::dom::parser _parser;
  simdjson::dom::element _root;
  std::string _padded;
  std::size_t _size = 0;
};

EventReader::EventReader() : _checker(std::make_unique<Checker>()) {}
EventReader::~EventReader() = default;

EventHandle EventReader::read(std::string_view text) {
  if (auto kept = keepText(text)) return kept;
  return decode(text);
}

EventHandle EventReader::decode(std::string_view text) {
  const auto json = decodeJSON(text);
  const auto event = json ? decodeStoredEvent(*json) : std::nullopt;
  return event ? _encoder.encode(*event) : nullptr;
}

EventHandle EventReader::keepText(std::string_view text) {
  TextScanner scan(text);
  EventText::HeadLayout head{};
  if (!scan.skip(R"({"type":)") || !scan.skipPlainString() || !scan.skip(R"(,"id":)"))
    return nullptr;
  head.idBegin = scan.position() + 1;
  if (!scan.skipPlainString()) return nullptr;
  head.idEnd = scan.position() - 1;
  if (!scan.skip(R"(,"timestamp":)") || !scan.skipNumber()) return nullptr;
  head.stampBegin = scan.position();
  const bool isStamped = scan.skip(R"(,"request_timestamp":)");
  if (isStamped && !scan.skipNumber()) return nullptr;
  head.stampEnd = scan.position();

  // What is JSON without the user's text is JSON with it, and that is checked once for all
  // neighbours.
  const bool isKnownUser = _userText && scan.skip(*_userText);
  if (!isKnownUser && !scan.skipUser()) return nullptr;
  const auto userText = text.substr(head.stampEnd, scan.position() - head.stampEnd);
  const auto dataText = text.substr(scan.position());
  if (!dataText.starts_with(R"(,"data":{)") || !dataText.ends_with('}')) return nullptr;
  if (!isKnownUser) {
    if (!_checker->isUserText(userText)) return nullptr;
    _userText = std::make_shared<const std::string>(userText);
  }
  if (!_checker->isObject({text.substr(0, head.stampEnd), dataText}, isStamped ? 5 : 4))
    return nullptr;
  return std::make_shared<const EncodedEvent>(std::string(_checker->text()), head, _userText);
}

}  // namespace kite
