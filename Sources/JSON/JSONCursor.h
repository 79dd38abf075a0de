#pragma once

#include <Kite/JSONValue.h>

#include <cstddef>
#include <optional>
#include <string>

namespace kite {

/// A place among the members of an object or the elements of an array.
class JSONCursor {
 public:
  /// At the beginning of a value that is a container.
  static std::optional<JSONCursor> of(const JSONValue& value) {
    if (const auto* members = value.object()) return JSONCursor(*members);
    if (const auto* elements = value.array()) return JSONCursor(*elements);
    return std::nullopt;
  }
  explicit JSONCursor(const JSONValue::Object& members) : _members(&members) {}
  explicit JSONCursor(const JSONValue::Array& elements) : _elements(&elements) {}

  bool isObject() const { return _members != nullptr; }
  std::size_t count() const { return isObject() ? _members->size() : _elements->size(); }
  std::size_t position() const { return _position; }
  bool isAtEnd() const { return _position == count(); }
  const std::string& key() const { return member().first; }
  const JSONValue& value() const { return isObject() ? member().second : (*_elements)[_position]; }
  void advance() { ++_position; }

 private:
  const JSONValue::Object::value_type& member() const {
    return _members->begin()[static_cast<std::ptrdiff_t>(_position)];
  }

  const JSONValue::Object* _members = nullptr;
  const JSONValue::Array* _elements = nullptr;
  std::size_t _position = 0;
};

}  // namespace kite
