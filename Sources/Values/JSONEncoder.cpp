#include "Values/JSONEncoder.h"

#include "Values/JSONString.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <utility>

namespace kite {
namespace {

void appendInteger(std::string& out, std::int64_t number) {
  std::array<char, 20> buffer;
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr;
  out.append(buffer.data(), end);
}

/// Appends the text of one value and remembers, innermost first, where it failed.
class Encoder {
 public:
  Encoder(std::string& out, int depth) : _out(out), _depth(depth) {}

  bool append(const JSONValue& value) {
    switch (value.kind()) {
      case JSONValue::Kind::string:
        appendQuotedUTF8(_out, *value.string());
        return true;
      case JSONValue::Kind::integer:
        appendInteger(_out, *value.integer());
        return true;
      case JSONValue::Kind::real:
        return append(*value.real());
      case JSONValue::Kind::boolean:
        _out.append(*value.boolean() ? "true" : "false");
        return true;
      case JSONValue::Kind::object:
        return append(*value.object());
      case JSONValue::Kind::array:
        return append(*value.array());
      case JSONValue::Kind::date:
        return append(value.date()->secondsSinceReferenceDate());
      case JSONValue::Kind::null:
        _out.append("null");
        return true;
    }
    return false;
  }

  bool append(const JSONValue::Object& members) {
    if (!open('{')) return false;
    for (const auto& [key, value] : members) {
      if (&key != &members.begin()->first) _out.push_back(',');
      appendJSONString(_out, key);
      _out.push_back(':');
      if (!append(value)) return failIn(key);
    }
    return close('}');
  }

  bool append(const JSONValue::Array& elements) {
    if (!open('[')) return false;
    for (std::size_t i = 0; i < elements.size(); ++i) {
      if (i > 0) _out.push_back(',');
      if (!append(elements[i])) return failIn(std::to_string(i));
    }
    return close(']');
  }

  bool append(double number) {
    if (!std::isfinite(number)) return fail("A number that is not finite has no JSON text");
    std::array<char, 32> buffer;
    const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr;
    _out.append(buffer.data(), end);
    const bool readsAsInteger =
        std::none_of(buffer.data(), end, [](char c) { return c == '.' || c == 'e'; });
    if (readsAsInteger) _out.append(".0");
    return true;
  }

  std::optional<EncodingError> error() && {
    if (_error) std::ranges::reverse(_error->codingPath);
    return std::move(_error);
  }

 private:
  bool open(char bracket) {
    if (_depth == maximumEncodedDepth) return fail("Objects and arrays nest too deeply");
    ++_depth;
    _out.push_back(bracket);
    return true;
  }
  bool close(char bracket) {
    --_depth;
    _out.push_back(bracket);
    return true;
  }
  bool fail(const char* description) {
    _error = EncodingError{.codingPath = {}, .debugDescription = description};
    return false;
  }
  bool failIn(std::string key) {
    _error->codingPath.push_back(std::move(key));
    return false;
  }

  std::string& _out;
  int _depth;
  std::optional<EncodingError> _error;
};

template <class Value>
std::optional<EncodingError> encode(std::string& out, const Value& value, int enclosingContainers) {
  Encoder encoder(out, enclosingContainers);
  encoder.append(value);
  return std::move(encoder).error();
}

}  // namespace

std::optional<EncodingError> appendJSON(std::string& out, const JSONValue& value,
                                        int enclosingContainers) {
  return encode(out, value, enclosingContainers);
}

std::optional<EncodingError> appendJSON(std::string& out, const JSONValue::Object& members,
                                        int enclosingContainers) {
  return encode(out, members, enclosingContainers);
}

std::optional<EncodingError> appendJSON(std::string& out, double number) {
  return encode(out, number, 0);
}

}  // namespace kite
