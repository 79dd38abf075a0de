#include "Common/WriteJSON.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cmath>
#include <iterator>

namespace kite::tool {
namespace {

void appendString(std::string& out, std::string_view text) {
  out += '"';
  for (const char c : text) {
    if (c == '"' || c == '\\') {
      out += {'\\', c};
    } else if (static_cast<unsigned char>(c) < 0x20) {
      fmt::format_to(std::back_inserter(out), "\\u{:04x}", static_cast<unsigned>(c));
    } else {
      out += c;
    }
  }
  out += '"';
}

void appendReal(std::string& out, double number) {
  if (!std::isfinite(number)) {
    out += "null";
    return;
  }
  std::array<char, 32> buffer{};
  const auto end = std::to_chars(buffer.data(), buffer.data() + buffer.size(), number).ptr;
  const std::string_view digits(buffer.data(), static_cast<std::size_t>(end - buffer.data()));
  out += digits;
  if (digits.find_first_of(".e") == digits.npos) out += ".0";
}

void appendObject(std::string& out, const JSONValue::Object& members) {
  const char* separator = "{";
  for (const auto& [key, value] : members) {
    out += separator;
    appendString(out, key);
    out += ':';
    appendJSON(out, value);
    separator = ",";
  }
  out += members.empty() ? "{}" : "}";
}

void appendArray(std::string& out, const JSONValue::Array& elements) {
  const char* separator = "[";
  for (const auto& element : elements) {
    out += separator;
    appendJSON(out, element);
    separator = ",";
  }
  out += elements.empty() ? "[]" : "]";
}

}  // namespace

void appendJSON(std::string& out, const JSONValue& value) {
  switch (value.kind()) {
    case JSONValue::Kind::string:
      return appendString(out, *value.string());
    case JSONValue::Kind::integer:
      out += std::to_string(*value.integer());
      return;
    case JSONValue::Kind::real:
      return appendReal(out, *value.real());
    case JSONValue::Kind::boolean:
      out += *value.boolean() ? "true" : "false";
      return;
    case JSONValue::Kind::object:
      return appendObject(out, *value.object());
    case JSONValue::Kind::array:
      return appendArray(out, *value.array());
    case JSONValue::Kind::date:
      return appendReal(out, value.date()->secondsSinceReferenceDate());
    case JSONValue::Kind::null:
      out += "null";
  }
}

std::string toJSON(const JSONValue& value) {
  std::string text;
  appendJSON(text, value);
  return text;
}

}  // namespace kite::tool
