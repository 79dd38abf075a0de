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
  DynamicValue(B flag) : DynamicValue(Boolean{flag}) {}
  DynamicValue(int number);
  DynamicValue(std::int64_t number);
  DynamicValue(std::uint64_t number);  // kept as `integer` where it fits
  DynamicValue(double number);
  DynamicValue(NullObject null);
  DynamicValue(std::string text);
  DynamicValue(const char* text);  // a null one is null
  DynamicValue(Array elements);
  DynamicValue(Dictionary entries);
  DynamicValue(Date date);
  DynamicValue(Data data);
  DynamicValue(Opaque object);

  Kind kind() const;

  /// The contents, or null when the value is of another kind.
  const bool* boolean() const;
  const std::int64_t* integer() const;
  const std::uint64_t* unsignedInteger() const;
  const double* real() const;
  const std::string* string() const;
  const Array* array() const;
  const Dictionary* dictionary() const;
  const Date* date() const;
  const Data* data() const;
  const Opaque* opaque() const;

  friend KITE_EXPORT bool operator==(const DynamicValue& a, const DynamicValue& b);

 private:
  struct Boolean {
    bool flag;
  };
  explicit DynamicValue(Boolean boolean);

  struct Contents;
  DeepShared<Contents> _contents;  // a hole is null
};

struct DynamicValue::Entry {
  DynamicValue key;
  DynamicValue value;

  friend bool operator==(const Entry&, const Entry&) = default;
};

/// The value of the entry whose key is the string `key`, or null.
KITE_EXPORT const DynamicValue* valueFor(const DynamicValue::Dictionary& dictionary,
                                         std::string_view key);

}  // namespace kite
