#include "JSON/JSONWriter.h"

#include "JSON/CopyText.h"
#include "JSON/UTF8.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>

namespace kite {
namespace {

constexpr std::size_t longestNumber = 32;  // more than any number takes

/// What follows the backslash in place of a byte; zero for bytes that stand for themselves.
constexpr auto escapes = [] {
  std::array<char, 256> table{};
  for (std::size_t control = 0; control < 0x20; ++control) table[control] = 'u';
  table['"'] = '"';
  table['\\'] = '\\';
  table['\b'] = 'b';
  table['\f'] = 'f';
  table['\n'] = 'n';
  table['\r'] = 'r';
  table['\t'] = 't';
  return table;
}();

char escapeOf(char byte) { return escapes[static_cast<unsigned char>(byte)]; }

constexpr std::size_t longestEscape = 6;

/// Writes the text with its escapes and gives the end.
char* writeEscaped(char* place, std::string_view text) {
  constexpr char digits[] = "0123456789abcdef";
  for (const char byte : text) {
    const char escape = escapeOf(byte);
    if (escape != 0) *place++ = '\\';
    *place++ = escape != 0 ? escape : byte;
    if (escape != 'u') continue;
    for (const char digit : {'0', '0', digits[byte >> 4], digits[byte & 0xF]}) *place++ = digit;
  }
  return place;
}

constexpr std::uint64_t eightTimes(unsigned char byte) { return 0x0101'0101'0101'0101U * byte; }

/// Which kinds of bytes a text has, found out eight bytes at a time.
class ByteKinds {
 public:
  explicit ByteKinds(std::string_view text) {
    if (text.size() < eight) {
      std::uint64_t few = eightTimes(' ');
      text.copy(reinterpret_cast<char*>(&few), text.size());
      add(few);
    } else {
      const char* const last = text.data() + text.size() - eight;
      for (const char* place = text.data(); place < last; place += eight) add(bytesAt(place));
      add(bytesAt(last));
    }
  }

  bool needEscapes() const { return (_escaped & highBits) != 0; }
  bool areASCII() const { return (_all & highBits) == 0; }

 private:
  static constexpr std::size_t eight = sizeof(std::uint64_t);
  static constexpr std::uint64_t highBits = eightTimes(0x80);

  static std::uint64_t bytesAt(const char* place) {
    std::uint64_t bytes;
    std::memcpy(&bytes, place, eight);
    return bytes;
  }
  /// Each term sets the high bit of a byte that needs an escape.
  void add(std::uint64_t bytes) {
    const auto hasZero = [](std::uint64_t word) { return (word - eightTimes(1)) & ~word; };
    const std::uint64_t isControl = (bytes - eightTimes(0x20)) & ~bytes;
    const std::uint64_t isQuote = hasZero(bytes ^ eightTimes('"'));
    const std::uint64_t isBackslash = hasZero(bytes ^ eightTimes('\\'));
    _escaped |= isControl | isQuote | isBackslash;
    _all |= bytes;
  }

  std::uint64_t _escaped = 0;
  std::uint64_t _all = 0;
};

}  // namespace

const std::optional<EncodingError>& JSONWriter::finish() {
  if (_place) _out.resize(position());
  _place = nullptr;
  return _error;
}

/// Where so many characters may be written.
char* JSONWriter::room(std::size_t size) {
  const auto rest = static_cast<std::size_t>(_out.data() + _out.size() - _place);
  return rest < size ? moreRoom(size) : _place;
}

char* JSONWriter::moreRoom(std::size_t size) {
  constexpr std::size_t step = 512;
  const std::size_t at = position();
  _out.resize(at + std::max(size, step));
  return _place = _out.data() + at;
}

void JSONWriter::put(char character) {
  *room(1) = character;
  ++_place;
}

void JSONWriter::put(std::string_view text) { _place = copyText(room(text.size()), text); }

void JSONWriter::begin(bool isObject) {
  if (!beginValue()) return;
  if (_open.size() >= std::size_t{maximumEncodedDepth})
    return fail("Objects and arrays nest too deeply");
  put(isObject ? '{' : '[');
  _open.push_back({.isObject = isObject, .count = 0, .key = {}});
}

void JSONWriter::end() {
  if (_error) return;
  put(_open.back().isObject ? '}' : ']');
  _open.pop_back();
}

void JSONWriter::key(std::string_view name) {
  if (_error) return;
  Container& object = _open.back();
  if (object.count++ > 0) put(',');
  object.key = name;
  putString(name);
  put(':');
}

/// Whether a value may be written. Puts the comma before an element; `key` puts that of a member.
bool JSONWriter::beginValue() {
  if (_error) return false;
  const bool isElement = !_open.empty() && !_open.back().isObject;
  if (isElement && _open.back().count++ > 0) put(',');
  return true;
}

void JSONWriter::string(std::string_view text) {
  if (beginValue()) putString(text);
}

void JSONWriter::putString(std::string_view text) {
  const ByteKinds bytes(text);
  if (!bytes.areASCII() && !isUTF8(text)) return putString(repairedUTF8(text));
  char* place = room((bytes.needEscapes() ? longestEscape : 1) * text.size() + 2);
  *place++ = '"';
  place = bytes.needEscapes() ? writeEscaped(place, text) : copyText(place, text);
  *place++ = '"';
  _place = place;
}

void JSONWriter::number(double number) {
  if (!beginValue()) return;
  if (!std::isfinite(number)) return fail("A number that is not finite has no JSON text");
  char* const begin = room(longestNumber);
  _place = std::to_chars(begin, begin + longestNumber, number).ptr;
  if (std::none_of(begin, _place, [](char c) { return c == '.' || c == 'e'; })) put(".0");
}

void JSONWriter::number(std::int64_t number) {
  if (!beginValue()) return;
  char* const begin = room(longestNumber);
  _place = std::to_chars(begin, begin + longestNumber, number).ptr;
}

void JSONWriter::boolean(bool flag) { raw(flag ? "true" : "false"); }

void JSONWriter::null() { raw("null"); }

void JSONWriter::raw(std::string_view json) {
  if (beginValue()) put(json);
}

void JSONWriter::value(const JSONValue& json) {
  switch (json.kind()) {
    case JSONValue::Kind::string:
      return string(*json.string());
    case JSONValue::Kind::integer:
      return number(*json.integer());
    case JSONValue::Kind::real:
      return number(*json.real());
    case JSONValue::Kind::boolean:
      return boolean(*json.boolean());
    case JSONValue::Kind::object:
      return value(*json.object());
    case JSONValue::Kind::array:
      return value(*json.array());
    case JSONValue::Kind::date:
      return number(json.date()->secondsSinceReferenceDate());
    case JSONValue::Kind::null:
      return null();
  }
}

// An error ends the walk, or it would go on below the depth that is allowed.
void JSONWriter::value(const JSONValue::Object& members) {
  beginObject();
  for (const auto& [name, member] : members) {
    if (_error) return;
    key(name);
    value(member);
  }
  endObject();
}

void JSONWriter::value(const JSONValue::Array& elements) {
  beginArray();
  for (const auto& element : elements) {
    if (_error) return;
    value(element);
  }
  endArray();
}

void JSONWriter::fail(const char* description) {
  _error.emplace(EncodingError{.codingPath = {}, .debugDescription = description});
  for (const auto& [isObject, count, key] : _open)
    _error->codingPath.push_back(isObject ? repairedUTF8(key) : std::to_string(count - 1));
}

}  // namespace kite
