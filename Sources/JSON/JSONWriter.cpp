#include "JSON/JSONWriter.h"

#include "JSON/UTF8.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstring>

namespace kite {
namespace {

constexpr std::size_t longestNumber = 32;

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

void appendEscape(std::string& out, char byte) {
  constexpr char digits[] = "0123456789abcdef";
  out.push_back('\\');
  out.push_back(escapeOf(byte));
  if (escapeOf(byte) != 'u') return;
  out.append("00");
  out.push_back(digits[byte >> 4]);
  out.push_back(digits[byte & 0xF]);
}

void appendEscaped(std::string& out, std::string_view text) {
  while (true) {
    const auto special = std::ranges::find_if(text, escapeOf);
    const auto clean = static_cast<std::size_t>(special - text.begin());
    out.append(text.data(), clean);
    if (clean == text.size()) return;
    appendEscape(out, *special);
    text.remove_prefix(clean + 1);
  }
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

void JSONWriter::begin(bool isObject) {
  if (!beginValue()) return;
  if (_open.size() >= std::size_t{maximumEncodedDepth})
    return fail("Objects and arrays nest too deeply");
  _out.push_back(isObject ? '{' : '[');
  _open.push_back({.isObject = isObject, .count = 0, .key = {}});
}

void JSONWriter::end() {
  if (_error) return;
  _out.push_back(_open.back().isObject ? '}' : ']');
  _open.pop_back();
}

void JSONWriter::key(std::string_view name) {
  if (_error) return;
  Container& object = _open.back();
  if (object.count++ > 0) _out.push_back(',');
  object.key = name;
  putString(name);
  _out.push_back(':');
}

/// Whether a value may be written. Puts the comma before an element; `key` puts that of a member.
bool JSONWriter::beginValue() {
  if (_error) return false;
  const bool isElement = !_open.empty() && !_open.back().isObject;
  if (isElement && _open.back().count++ > 0) _out.push_back(',');
  return true;
}

void JSONWriter::string(std::string_view text) {
  if (beginValue()) putString(text);
}

void JSONWriter::putString(std::string_view text) {
  const ByteKinds bytes(text);
  if (!bytes.areASCII() && !isUTF8(text)) return putString(repairedUTF8(text));
  _out.push_back('"');
  bytes.needEscapes() ? appendEscaped(_out, text) : static_cast<void>(_out.append(text));
  _out.push_back('"');
}

void JSONWriter::number(double number) {
  if (!beginValue()) return;
  if (!std::isfinite(number)) return fail("A number that is not finite has no JSON text");
  std::array<char, longestNumber> text;
  char* end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
  const bool isReal = std::any_of(text.data(), end, [](char c) { return c == '.' || c == 'e'; });
  _out.append(text.data(), end);
  if (!isReal) _out.append(".0");
}

void JSONWriter::number(std::int64_t number) {
  if (!beginValue()) return;
  std::array<char, longestNumber> text;
  _out.append(text.data(), std::to_chars(text.data(), text.data() + text.size(), number).ptr);
}

void JSONWriter::boolean(bool flag) { raw(flag ? "true" : "false"); }

void JSONWriter::null() { raw("null"); }

void JSONWriter::raw(std::string_view json) {
  if (beginValue()) _out.append(json);
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
