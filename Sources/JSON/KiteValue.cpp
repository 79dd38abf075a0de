#include <Kite/Base/FatalError.h>
#include <Kite/KiteValue.h>

#include "JSON/TreeConversion.h"
#include "JSON/UTF8.h"

namespace kite {
namespace {

/// A place among the members of an object or the elements of an array.
class JSONCursor {
 public:
  /// At the beginning of a value that is a container.
  static std::optional<JSONCursor> of(const JSONValue& value) {
    if (const auto* members = value.object()) return JSONCursor(*members);
    if (const auto* elements = value.array()) return JSONCursor(*elements);
    return std::nullopt;
  }

  bool isObject() const { return _members != nullptr; }
  std::size_t count() const { return isObject() ? _members->size() : _elements->size(); }
  bool isAtEnd() const { return _position == count(); }
  const std::string& key() const { return member().first; }
  const JSONValue& value() const { return isObject() ? member().second : (*_elements)[_position]; }
  void advance() { ++_position; }

 private:
  explicit JSONCursor(const JSONValue::Object& members) : _members(&members) {}
  explicit JSONCursor(const JSONValue::Array& elements) : _elements(&elements) {}
  const JSONValue::Object::value_type& member() const {
    return _members->begin()[static_cast<std::ptrdiff_t>(_position)];
  }

  const JSONValue::Object* _members = nullptr;
  const JSONValue::Array* _elements = nullptr;
  std::size_t _position = 0;
};

std::optional<JSONValue> hostLeaf(const JSONValue& value) {
  if (value.isNull()) return std::nullopt;
  if (const auto* date = value.date()) return date->secondsSince1970;
  return value;
}

/// Stored JSON as the host sees it: dates are seconds, nulls are gone.
JSONValue hostJSON(const JSONValue& value) {
  const auto cursor = JSONCursor::of(value);
  return cursor ? convertTree(*cursor, JSONCursor::of, hostLeaf)
                : hostLeaf(value).value_or(JSONValue());
}

template <class T>
std::optional<T> copyOf(const T* value) {
  return value != nullptr ? std::optional<T>(*value) : std::nullopt;
}

}  // namespace

KiteValue::KiteValue(const DynamicValue& object) {
  if (const auto* flag = object.boolean()) _json = *flag ? 1.0 : 0.0;
  if (const auto* integer = object.integer()) _json = static_cast<double>(*integer);
  if (const auto* large = object.unsignedInteger()) _json = static_cast<double>(*large);
  if (const auto* real = object.real()) _json = *real;
  if (const auto* text = object.string()) _json = *text;
  if (const auto* date = object.date()) *this = *date;
}

KiteValue::KiteValue(const std::vector<KiteValue>& elements)
    : KiteValue(std::vector<KiteValue>(elements)) {}

KiteValue::KiteValue(std::vector<KiteValue>&& elements) {
  JSONValue::Array array;
  array.reserve(elements.size());
  for (auto& element : elements) array.push_back(takeFrom(std::move(element)));
  _json = std::move(array);
}

JSONValue KiteValue::takeFrom(KiteValue child) {
  if (child._form != Form::outOfRange) return std::move(child).toJSONValue();
  _form = Form::outOfRange;
  return {};
}

JSONValue KiteValue::toJSONValue() const& { return KiteValue(*this).toJSONValue(); }

JSONValue KiteValue::toJSONValue() && {
  requireJSON();
  return _form == Form::stored ? hostJSON(_json) : std::move(_json);
}

void KiteValue::requireJSON() const {
  if (_form != Form::outOfRange) return;
  fatalError("A number above the largest signed 64-bit integer has no JSON form",
             {"KiteValue", "toJSONValue()", __LINE__});
}

template <>
std::optional<std::string> KiteValue::as<std::string>() const {
  return copyOf(_json.string());
}
template <>
std::optional<std::int64_t> KiteValue::as<std::int64_t>() const {
  return copyOf(_json.integer());
}
template <>
std::optional<double> KiteValue::as<double>() const {
  return copyOf(_json.real());
}
template <>
std::optional<bool> KiteValue::as<bool>() const {
  return copyOf(_json.boolean());
}
template <>
std::optional<Date> KiteValue::as<Date>() const {
  return copyOf(_json.date());
}

template <>
std::optional<std::vector<KiteValue>> KiteValue::as<std::vector<KiteValue>>() const {
  if (_json.array() == nullptr || _form == Form::outOfRange) return std::nullopt;
  std::vector<KiteValue> elements;
  for (const auto& value : *_json.array())
    if (!isGone(value)) elements.push_back(KiteValue(value, _form));
  return elements;
}

std::optional<KiteValue> toKiteValue(const JSONValue& json) {
  if (json.isNull()) return std::nullopt;
  return KiteValue(json, KiteValue::Form::stored);
}

}  // namespace kite
