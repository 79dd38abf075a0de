#pragma once

#include <Kite/Base/Data.h>
#include <Kite/Base/Date.h>
#include <Kite/Base/DeepShared.h>
#include <Kite/Base/Export.h>

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace kite {

/// An untyped object as a platform hands it over: out of a property list, a keyed archive or an
/// attribution reply.
///
/// A boxed boolean is a case of its own and is not equal to a boxed 0 or 1; the conversions to JSON
/// rest on that. Dictionaries are equal when their entries are, in order. Values nest to any depth:
/// copying, comparing and destroying them needs no stack in proportion.
class KITE_EXPORT DynamicValue {
 public:
  using Array = std::vector<DynamicValue>;

  /// The object that stands for "no object" inside collections.
  struct NullObject {
    friend bool operator==(NullObject, NullObject) = default;
  };
  /// An object that no conversion knows, remembered by its class name only.
  struct Opaque {
    std::string className;
    friend bool operator==(const Opaque&, const Opaque&) = default;
  };
  /// One entry of a dictionary, in the dictionary's own order; a key need not be a string.
  struct Entry;
  using Dictionary = std::vector<Entry>;

  enum class Kind : std::uint8_t {
    boolean,          // the boxed true or false object itself
    integer,          // a boxed signed 64-bit integer
    unsignedInteger,  // a boxed integer above the signed range
    real,             // a boxed 64-bit float
    null,
    string,
    array,
    dictionary,
    date,
    data,
    opaque
  };

  template <std::same_as<bool> B>
  DynamicValue(B flag) : _value(flag) {}
  DynamicValue(int number) : _value(std::int64_t{number}) {}
  DynamicValue(std::int64_t number) : _value(number) {}
  DynamicValue(std::uint64_t number);  // kept as `integer` where it fits
  DynamicValue(double number) : _value(number) {}
  DynamicValue(NullObject null) : _value(null) {}
  DynamicValue(std::string text) : _value(std::move(text)) {}
  DynamicValue(const char* text)  // a null one is null
      : DynamicValue(text != nullptr ? DynamicValue(std::string(text))
                                     : DynamicValue(NullObject{})) {}
  DynamicValue(Array elements);
  DynamicValue(Dictionary entries);
  DynamicValue(Date date) : _value(date) {}
  DynamicValue(Data data) : _value(std::move(data)) {}
  DynamicValue(Opaque object) : _value(std::move(object)) {}

  DynamicValue(const DynamicValue&) = default;
  DynamicValue(DynamicValue&& other) noexcept : _value(std::move(other._value)) {
    other._value = NullObject{};
  }
  DynamicValue& operator=(const DynamicValue& other) { return *this = DynamicValue(other); }
  DynamicValue& operator=(DynamicValue&& other) noexcept {
    _value.swap(other._value);
    other._value = NullObject{};
    return *this;
  }
  ~DynamicValue() = default;

  Kind kind() const { return static_cast<Kind>(_value.index()); }

  /// The contents, or null when the value is of another kind.
  const bool* boolean() const { return std::get_if<bool>(&_value); }
  const std::int64_t* integer() const { return std::get_if<std::int64_t>(&_value); }
  const std::uint64_t* unsignedInteger() const { return std::get_if<std::uint64_t>(&_value); }
  const double* real() const { return std::get_if<double>(&_value); }
  const std::string* string() const { return std::get_if<std::string>(&_value); }
  const Array* array() const;
  const Dictionary* dictionary() const;
  const Date* date() const { return std::get_if<Date>(&_value); }
  const Data* data() const { return std::get_if<Data>(&_value); }
  const Opaque* opaque() const { return std::get_if<Opaque>(&_value); }

  friend KITE_EXPORT bool operator==(const DynamicValue& a, const DynamicValue& b);

 private:
  std::variant<bool, std::int64_t, std::uint64_t, double, NullObject, std::string,
               DeepShared<Array>, DeepShared<Dictionary>, Date, Data, Opaque>
      _value;
};

struct DynamicValue::Entry {
  DynamicValue key;
  DynamicValue value;

  friend bool operator==(const Entry&, const Entry&) = default;
};

inline const DynamicValue::Array* DynamicValue::array() const {
  const auto* elements = std::get_if<DeepShared<Array>>(&_value);
  return elements != nullptr ? &**elements : nullptr;
}

inline const DynamicValue::Dictionary* DynamicValue::dictionary() const {
  const auto* entries = std::get_if<DeepShared<Dictionary>>(&_value);
  return entries != nullptr ? &**entries : nullptr;
}

/// The value of the entry whose key is the string `key`, or null.
KITE_EXPORT const DynamicValue* valueFor(const DynamicValue::Dictionary& dictionary,
                                         std::string_view key);

}  // namespace kite
