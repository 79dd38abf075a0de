#include "JSON/JSONDecoder.h"

#include "JSON/TreeConversion.h"

#include <simdjson.h>

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <new>
#include <string>
#include <system_error>

namespace kite {
namespace {

namespace dom = simdjson::dom;

class DocumentCursor {
 public:
  static std::optional<DocumentCursor> of(const dom::element& value) {
    if (value.is_object()) return DocumentCursor(value.get_object().value_unsafe());
    if (value.is_array()) return DocumentCursor(value.get_array().value_unsafe());
    return std::nullopt;
  }

  bool isObject() const { return _isObject; }
  std::size_t count() const { return _count; }
  bool isAtEnd() const { return _isObject ? _member == _membersEnd : _element == _elementsEnd; }
  std::string_view key() const { return _member.key(); }
  dom::element value() const { return _isObject ? _member.value() : *_element; }
  void advance() {
    if (_isObject) {
      ++_member;
    } else {
      ++_element;
    }
  }

 private:
  explicit DocumentCursor(dom::object object)
      : _isObject(true),
        _count(object.size()),
        _member(object.begin()),
        _membersEnd(object.end()) {}
  explicit DocumentCursor(dom::array array)
      : _isObject(false),
        _count(array.size()),
        _element(array.begin()),
        _elementsEnd(array.end()) {}

  bool _isObject;
  std::size_t _count;
  dom::object::iterator _member, _membersEnd;
  dom::array::iterator _element, _elementsEnd;
};

std::optional<JSONValue> leaf(const dom::element& value) {
  switch (value.type()) {
    case dom::element_type::STRING:
      return JSONValue(value.get_string().value_unsafe());
    case dom::element_type::INT64:
      return JSONValue(value.get_int64().value_unsafe());
    case dom::element_type::UINT64:
    case dom::element_type::DOUBLE:
      return JSONValue(value.get_double().value_unsafe());
    case dom::element_type::BOOL:
      return JSONValue(value.get_bool().value_unsafe());
    default:
      return JSONValue(Null{});
  }
}

// The parser counts the place inside a container as a level, so that an empty one goes deeper.
constexpr std::size_t maximumDepth = 1024 + 1;

/// The length of the string that `text` begins with, quotes included.
std::size_t stringLength(std::string_view text) {
  std::size_t i = 1;
  while (i < text.size() && text[i] != '"') i += text[i] == '\\' ? 2U : 1U;
  return std::min(i + 1, text.size());
}

/// Whether the text is that of an integer that does not fit into 64 bits.
bool isLargeInteger(std::string_view number) {
  std::int64_t ignored;
  const char* const end = number.data() + number.size();
  const auto [rest, error] = std::from_chars(number.data(), end, ignored);
  return error == std::errc::result_out_of_range && rest == end;
}

/// The text with a fraction after every integer beyond 64 bits, which the parser refuses without.
std::string withRealIntegers(std::string_view text) {
  constexpr std::string_view numberCharacters = "0123456789+-.eE";
  std::string result;
  while (!text.empty()) {
    const auto length =
        text.front() == '"'
            ? stringLength(text)
            : std::max<std::size_t>(
                  1, std::min(text.find_first_not_of(numberCharacters), text.size()));
    const auto token = text.substr(0, length);
    result.append(token);
    if (isLargeInteger(token)) result.append(".0");
    text.remove_prefix(length);
  }
  return result;
}

// Memory that ran out says nothing about the text.
bool isDone(simdjson::error_code error) {
  if (error == simdjson::MEMALLOC) throw std::bad_alloc();
  return error == simdjson::SUCCESS;
}

}  // namespace

std::optional<JSONValue> decodeJSON(std::string_view text) {
  dom::parser parser;
  if (!isDone(parser.allocate(text.size(), maximumDepth))) return std::nullopt;
  auto document = parser.parse(text.data(), text.size());
  if (document.error() == simdjson::NUMBER_ERROR) document = parser.parse(withRealIntegers(text));
  if (!isDone(document.error())) return std::nullopt;
  const dom::element value = document.value_unsafe();
  const auto container = DocumentCursor::of(value);
  return container ? convertTree(*container, DocumentCursor::of, leaf) : leaf(value);
}

}  // namespace kite
