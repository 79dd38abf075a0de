#pragma once

#include <Kite/Base/Date.h>
#include <Kite/Base/DeepShared.h>
#include <Kite/Base/Export.h>
#include <Kite/Base/FlatMap.h>

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace kite {

/// The absence of a value, as JSON writes it.
struct Null {
  friend bool operator==(Null, Null) = default;
};

/// A single character, which C++ would take for a number.
template <class T>
concept Character = std::same_as<T, char> || std::same_as<T, wchar_t> || std::same_as<T, char8_t> ||
    std::same_as<T, char16_t> || std::same_as<T, char32_t>;

/// A JSON value (RFC 8259) that never changes once made; copies of objects and arrays share their
/// contents.
///
/// An integer is never equal to a real, whatever their values. Reals compare as C++ compares them,
/// but an object or array is always equal to its own copies. Text that is not UTF-8 is repaired
/// with U+FFFD on entry. Values nest to any depth: making, copying, comparing and destroying them
/// needs no stack in proportion. A value that was moved from is null. Safe on any thread.
class KITE_EXPORT JSONValue {
 public:
  using Object = FlatMap<std::string, JSONValue>;
  using Array = std::vector<JSONValue>;

  enum class Kind : std::uint8_t { string, integer, real, boolean, object, array, date, null };

  JSONValue() noexcept;
  JSONValue(Null) noexcept : JSONValue() {}
  JSONValue(std::nullptr_t) noexcept : JSONValue() {}
  JSONValue(std::string text);
  JSONValue(std::string_view text);
  JSONValue(const char* text);  // or a pointer would become a boolean; a null one is null
  template <std::same_as<bool> B>
  JSONValue(B flag) noexcept : JSONValue(Boolean{flag}) {}
  JSONValue(std::int64_t number) noexcept;
  JSONValue(int number) noexcept : JSONValue(std::int64_t{number}) {}
  JSONValue(double number) noexcept;
  template <Character C>
  JSONValue(C) = delete;
  JSONValue(Date date) noexcept;
  JSONValue(Object members);
  JSONValue(Array elements);

  JSONValue(const JSONValue& other);
  JSONValue(JSONValue&& other) noexcept;
  JSONValue& operator=(const JSONValue& other);
  JSONValue& operator=(JSONValue&& other) noexcept;
  ~JSONValue();

  Kind kind() const { return static_cast<Kind>(_value.index()); }

  /// The contents, or null when the value is of another kind.
  const std::string* string() const { return std::get_if<std::string>(&_value); }
  const std::int64_t* integer() const { return std::get_if<std::int64_t>(&_value); }
  const double* real() const { return std::get_if<double>(&_value); }
  const bool* boolean() const { return std::get_if<bool>(&_value); }
  const Object* object() const;
  const Array* array() const;
  const Date* date() const { return std::get_if<Date>(&_value); }
  bool isNull() const { return kind() == Kind::null; }

  friend KITE_EXPORT bool operator==(const JSONValue& a, const JSONValue& b);

 private:
  struct Boolean {
    bool flag;
  };
  explicit JSONValue(Boolean boolean) noexcept;

  std::variant<std::string, std::int64_t, double, bool, DeepShared<Object>, DeepShared<Array>, Date,
               Null>
      _value;
};

extern template class FlatMap<std::string, JSONValue>;

static_assert(static_cast<int>(JSONValue::Kind::null) == 7,
              "the order of the cases is part of the contract");

inline const JSONValue::Object* JSONValue::object() const {
  const auto* members = std::get_if<DeepShared<Object>>(&_value);
  return members != nullptr ? &**members : nullptr;
}

inline const JSONValue::Array* JSONValue::array() const {
  const auto* elements = std::get_if<DeepShared<Array>>(&_value);
  return elements != nullptr ? &**elements : nullptr;
}

}  // namespace kite
