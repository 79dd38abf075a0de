#include "Common/WriteJSON.h"

#include "JSON/JSONWriter.h"

#include <cmath>

namespace kite::tool {
namespace {

JSONValue withoutInfinities(const JSONValue& value) {
  if (const auto* real = value.real()) return std::isfinite(*real) ? value : JSONValue();
  if (const auto* members = value.object()) {
    JSONValue::Object object = *members;
    for (auto& [key, member] : object) member = withoutInfinities(member);
    return object;
  }
  if (const auto* elements = value.array()) {
    JSONValue::Array array = *elements;
    for (auto& element : array) element = withoutInfinities(element);
    return array;
  }
  return value;
}

}  // namespace

std::string toJSON(const JSONValue& value) {
  std::string text;
  if (!appendJSON(text, value)) return text;
  text.clear();
  return appendJSON(text, withoutInfinities(value)) ? "null" : text;
}

}  // namespace kite::tool
