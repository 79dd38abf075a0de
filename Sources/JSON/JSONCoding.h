#pragma once

#include <Kite/Base/Date.h>
#include <Kite/Base/UUID.h>
#include <Kite/JSONValue.h>

#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace kite {

/// The JSON form of a stored record: `static JSONValue encode(const T&)` and
/// `static std::optional<T> decode(const JSONValue&)`. Specialised beside each record.
template <class T>
struct JSONCoding;

template <>
struct JSONCoding<std::string> {
  static std::optional<std::string> decode(const JSONValue& json) {
    return json.string() ? std::optional(*json.string()) : std::nullopt;
  }
};

template <>
struct JSONCoding<bool> {
  static std::optional<bool> decode(const JSONValue& json) {
    return json.boolean() ? std::optional(*json.boolean()) : std::nullopt;
  }
};

/// A number without a fraction reads as an integer, and is a double all the same.
template <>
struct JSONCoding<double> {
  static JSONValue encode(double number) { return number; }
  static std::optional<double> decode(const JSONValue& json) {
    if (json.integer()) return static_cast<double>(*json.integer());
    return json.real() ? std::optional(*json.real()) : std::nullopt;
  }
};

template <>
struct JSONCoding<JSONValue::Object> {
  static std::optional<JSONValue::Object> decode(const JSONValue& json) {
    return json.object() ? std::optional(*json.object()) : std::nullopt;
  }
};

template <>
struct JSONCoding<UUID> {
  static std::optional<UUID> decode(const JSONValue& json) {
    return json.string() ? UUID::parse(*json.string()) : std::nullopt;
  }
};

/// Seconds since 2001-01-01T00:00:00Z.
template <>
struct JSONCoding<Date> {
  static std::optional<Date> decode(const JSONValue& json) {
    const auto seconds = JSONCoding<double>::decode(json);
    return seconds ? std::optional(Date::sinceReferenceDate(*seconds)) : std::nullopt;
  }
};

/// Reads the members of one record. A record decodes whole or not at all.
class RecordReader {
 public:
  explicit RecordReader(const JSONValue& json) : _members(json.object()), _isWhole(_members) {}

  /// The member under `key`; without one, or with one of another type, the record is void.
  template <class T>
  T required(std::string_view key) {
    const auto* value = find(key);
    return decode<T>(value ? *value : JSONValue()).value_or(T{});
  }
  /// Absent and null members give nothing; one of another type voids the record.
  template <class T>
  std::optional<T> optional(std::string_view key) {
    const auto* value = find(key);
    if (!value || value->isNull()) return std::nullopt;
    return decode<T>(*value);
  }

  /// The record made of what was read, unless that is void.
  template <class Record>
  std::optional<Record> whole(Record record) const {
    return _isWhole ? std::optional(std::move(record)) : std::nullopt;
  }

 private:
  const JSONValue* find(std::string_view key) const {
    return _members ? _members->at(key) : nullptr;
  }
  template <class T>
  std::optional<T> decode(const JSONValue& json) {
    auto value = JSONCoding<T>::decode(json);
    if (!value) _isWhole = false;
    return value;
  }

  const JSONValue::Object* _members;
  bool _isWhole;
};

}  // namespace kite
