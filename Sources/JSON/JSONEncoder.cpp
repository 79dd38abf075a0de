#include "JSON/JSONEncoder.h"

#include "JSON/JSONCursor.h"
#include "JSON/JSONNumber.h"
#include "JSON/JSONString.h"

#include <array>
#include <cstdint>

namespace kite {
namespace {

/// Why a value has no text; null when it has one.
using Fault = const char*;
constexpr Fault none = nullptr;

void appendInteger(std::string& out, std::int64_t number) {
  std::array<char, longestJSONNumber> buffer;
  out.append(buffer.data(), writeJSONNumber(buffer.data(), number));
}

Fault appendReal(std::string& out, double number) {
  std::array<char, longestJSONNumber> buffer;
  char* const end = writeJSONNumber(buffer.data(), number);
  if (!end) return "A number that is not finite has no JSON text";
  out.append(buffer.data(), end);
  return none;
}

Fault appendScalar(std::string& out, const JSONValue& value) {
  if (const auto* text = value.string()) return appendQuotedUTF8(out, *text), none;
  if (const auto* integer = value.integer()) return appendInteger(out, *integer), none;
  if (const auto* real = value.real()) return appendReal(out, *real);
  if (const auto* flag = value.boolean()) return out.append(*flag ? "true" : "false"), none;
  if (const auto* date = value.date()) return appendReal(out, date->secondsSinceReferenceDate());
  return out.append("null"), none;
}

/// Appends the text of a container; those that are open wait in a list, so that a deep value takes
/// no stack.
class ContainerEncoder {
 public:
  ContainerEncoder(std::string& out, int enclosingContainers)
      : _out(out), _enclosing(static_cast<std::size_t>(enclosingContainers)) {}

  std::optional<EncodingError> encode(const JSONCursor& outermost) {
    Fault fault = open(outermost);
    while (fault == none && !_open.empty()) fault = step();
    if (fault == none) return std::nullopt;
    return EncodingError{.codingPath = codingPath(), .debugDescription = fault};
  }

 private:
  Fault step() {
    JSONCursor& innermost = _open.back();
    if (innermost.isAtEnd()) return close(), none;
    if (innermost.position() > 0) _out.push_back(',');
    if (innermost.isObject()) {
      appendJSONString(_out, innermost.key());
      _out.push_back(':');
    }
    if (const auto inner = JSONCursor::of(innermost.value())) return open(*inner);
    const Fault fault = appendScalar(_out, innermost.value());
    if (fault == none) innermost.advance();
    return fault;
  }
  Fault open(const JSONCursor& container) {
    if (_enclosing + _open.size() >= maximumEncodedDepth)
      return "Objects and arrays nest too deeply";
    _out.push_back(container.isObject() ? '{' : '[');
    _open.push_back(container);
    return none;
  }
  void close() {
    _out.push_back(_open.back().isObject() ? '}' : ']');
    _open.pop_back();
    if (!_open.empty()) _open.back().advance();
  }
  std::vector<std::string> codingPath() const {
    std::vector<std::string> path;
    for (const auto& cursor : _open)
      path.push_back(cursor.isObject() ? cursor.key() : std::to_string(cursor.position()));
    return path;
  }

  std::string& _out;
  std::size_t _enclosing;
  std::vector<JSONCursor> _open;
};

std::optional<EncodingError> errorOf(Fault fault) {
  if (fault == none) return std::nullopt;
  return EncodingError{.codingPath = {}, .debugDescription = fault};
}

}  // namespace

std::optional<EncodingError> within(std::initializer_list<const char*> path,
                                    std::optional<EncodingError> error) {
  if (error) error->codingPath.insert(error->codingPath.begin(), path.begin(), path.end());
  return error;
}

std::optional<EncodingError> appendJSON(std::string& out, const JSONValue& value,
                                        int enclosingContainers) {
  const auto container = JSONCursor::of(value);
  return container ? ContainerEncoder(out, enclosingContainers).encode(*container)
                   : errorOf(appendScalar(out, value));
}

std::optional<EncodingError> appendJSON(std::string& out, const JSONValue::Object& members,
                                        int enclosingContainers) {
  return ContainerEncoder(out, enclosingContainers).encode(JSONCursor(members));
}

std::optional<EncodingError> appendJSON(std::string& out, double number) {
  return errorOf(appendReal(out, number));
}

}  // namespace kite
