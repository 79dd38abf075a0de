#pragma once

#include <Kite/Base/UUID.h>
#include <Kite/DynamicValue.h>
#include <Kite/JSONValue.h>

#include <concepts>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kite {

class KiteValue;
class KiteData;

/// Specialise it to make a type of the host's a `KiteValue`: `static JSONValue convert(const T&)`.
/// A type with a member `JSONValue toJSONValue() const` needs no specialisation.
template <class T>
struct ToJSONValue;

template <class T>
requires requires(const T& value) {
  { value.toJSONValue() } -> std::same_as<JSONValue>;
}
struct ToJSONValue<T> {
  static JSONValue convert(const T& value) { return value.toJSONValue(); }
};

template <class T>
concept KiteConvertible =
    !std::same_as<T, KiteValue> && !std::same_as<T, KiteData> && requires(const T& value) {
  { ToJSONValue<T>::convert(value) } -> std::same_as<JSONValue>;
};

template <class T>
concept KiteInteger = std::integral<T> && !std::same_as<T, bool> && !Character<T>;

/// Any value that can be turned into JSON: text, numbers, booleans, dates, identifiers, boxed
/// platform objects, lists and maps of these, optionals, and the host's own types (`ToJSONValue`).
///
/// A date becomes seconds since 1970; a boxed platform number or boolean becomes a real. Lists and
/// maps convert their contents as they are made. Immutable; safe on any thread.
class KITE_EXPORT KiteValue {
 public:
  KiteValue() = default;  ///< null
  KiteValue(std::nullptr_t) {}
  KiteValue(std::nullopt_t) {}
  KiteValue(JSONValue json) : _json(std::move(json)) {}
  KiteValue(const char* text) : _json(text) {}  // a null one is null
  KiteValue(std::string_view text) : _json(text) {}
  KiteValue(std::string text) : _json(std::move(text)) {}
  template <std::same_as<bool> B>
  KiteValue(B flag) : _json(flag) {}
  template <std::floating_point F>
  KiteValue(F number) : _json(static_cast<double>(number)) {}
  /// A number above the largest signed 64-bit integer is remembered as such, and stops the process
  /// when it is to become JSON.
  template <KiteInteger I>
  KiteValue(I number) {
    if (std::in_range<std::int64_t>(number)) {
      _json = static_cast<std::int64_t>(number);
    } else {
      _form = Form::outOfRange;
    }
  }
  template <Character C>
  KiteValue(C) = delete;
  KiteValue(Date date) : _json(date), _form(Form::stored) {}
  KiteValue(const UUID& uuid) : _json(uuid.text()) {}
  /// A boxed number or boolean, string, date or null object; any other platform object is taken as
  /// null.
  KiteValue(const DynamicValue& object);
  KiteValue(const KiteData& members);
  KiteValue(const std::vector<KiteValue>& elements);
  KiteValue(std::vector<KiteValue>&& elements);
  template <class T>
  requires std::constructible_from<KiteValue, const T&> KiteValue(const std::vector<T>& elements)
      : KiteValue(std::vector<KiteValue>(elements.begin(), elements.end())) {}
  template <class T, class Compare>
  requires std::constructible_from<KiteValue, const T&> KiteValue(
      const std::map<std::string, T, Compare>& members);
  template <class T>
  requires std::constructible_from<KiteValue, const T&> KiteValue(const std::optional<T>& value)
      : KiteValue(value ? KiteValue(*value) : KiteValue()) {}
  template <KiteConvertible T>
  KiteValue(const T& value) : _json(ToJSONValue<T>::convert(value)) {}

  /// Stops the process when something in it has no JSON form.
  void requireJSON() const;
  JSONValue toJSONValue() const&;
  JSONValue toJSONValue() &&;

  /// The value as a `T`, or nothing when it is of another kind or holds a number that is out of
  /// range. `T` is one of `std::string`, `std::int64_t`, `double`, `bool`, `Date`, `KiteData` and
  /// `std::vector<KiteValue>`. An integer is no `double`.
  template <class T>
  std::optional<T> as() const;

 private:
  friend class KiteData;
  friend KITE_EXPORT std::optional<KiteValue> toKiteValue(const JSONValue& json);

  enum class Form : std::uint8_t {
    plain,       // `_json` is the value's JSON
    stored,      // `_json` comes from the library: its dates are dates, its nulls are gone
    outOfRange,  // some unsigned number in it does not fit
  };
  KiteValue(JSONValue json, Form form) : _json(std::move(json)), _form(form) {}
  JSONValue takeFrom(KiteValue child);
  bool isGone(const JSONValue& child) const { return _form == Form::stored && child.isNull(); }

  JSONValue _json;
  Form _form = Form::plain;
};

template <>
KITE_EXPORT std::optional<std::string> KiteValue::as<std::string>() const;
template <>
KITE_EXPORT std::optional<std::int64_t> KiteValue::as<std::int64_t>() const;
template <>
KITE_EXPORT std::optional<double> KiteValue::as<double>() const;
template <>
KITE_EXPORT std::optional<bool> KiteValue::as<bool>() const;
template <>
KITE_EXPORT std::optional<Date> KiteValue::as<Date>() const;
template <>
KITE_EXPORT std::optional<KiteData> KiteValue::as<KiteData>() const;
template <>
KITE_EXPORT std::optional<std::vector<KiteValue>> KiteValue::as<std::vector<KiteValue>>() const;

/// Stored JSON on its way back to the host. Null gives nothing, and disappears from the objects and
/// arrays that hold it.
KITE_EXPORT std::optional<KiteValue> toKiteValue(const JSONValue& json);

}  // namespace kite

#include <Kite/KiteData.h>  // each is made of the other
