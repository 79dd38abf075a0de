#include "JSON/DynamicConversion.h"

#include <Kite/Base/FatalError.h>

#include "JSON/TreeConversion.h"
#include "JSON/UTF8.h"

#include <algorithm>
#include <cmath>

namespace kite {
namespace {

/// Walks an array or a dictionary; entries whose key is not a string are not there.
class DynamicCursor {
 public:
  static std::optional<DynamicCursor> of(const DynamicValue& value) {
    if (value.array() == nullptr && value.dictionary() == nullptr) return std::nullopt;
    return DynamicCursor(value);
  }

  bool isObject() const { return _entries != nullptr; }
  std::size_t count() const { return isObject() ? _entries->size() : _elements->size(); }
  bool isAtEnd() const { return _next == count(); }
  std::string key() const { return repairedUTF8(std::string_view(*entry().key.string())); }
  const DynamicValue& value() const { return isObject() ? entry().value : (*_elements)[_next]; }
  void advance() {
    ++_next;
    skipUnnamed();
  }

 private:
  explicit DynamicCursor(const DynamicValue& value)
      : _entries(value.dictionary()), _elements(value.array()) {
    skipUnnamed();
  }
  const DynamicValue::Entry& entry() const { return (*_entries)[_next]; }
  void skipUnnamed() {
    while (isObject() && !isAtEnd() && entry().key.string() == nullptr) ++_next;
  }

  const DynamicValue::Dictionary* _entries;
  const DynamicValue::Array* _elements;
  std::size_t _next = 0;
};

template <class Leaf>
std::optional<JSONValue> convert(const DynamicValue& object, Leaf leaf) {
  const auto cursor = DynamicCursor::of(object);
  return cursor ? convertTree(*cursor, DynamicCursor::of, leaf) : leaf(object);
}

/// The integer that is the boxed number's value, if there is one.
std::optional<std::int64_t> exactInteger(const DynamicValue& object) {
  if (const auto* integer = object.integer()) return *integer;
  const auto* real = object.real();
  constexpr double limit = 9'223'372'036'854'775'808.0;  // the first that is too large
  if (real == nullptr || !(*real >= -limit && *real < limit) || std::trunc(*real) != *real)
    return std::nullopt;
  return static_cast<std::int64_t>(*real);
}

/// The real that is the boxed number's value, if there is one. "Not a number" is nobody's value.
std::optional<double> exactReal(const DynamicValue& object) {
  if (const auto* real = object.real())
    return std::isnan(*real) ? std::nullopt : std::optional(*real);
  const auto* large = object.unsignedInteger();
  constexpr std::uint64_t roundedOff = (1U << 11) - 1;  // 64 bits less the 53 that a real keeps
  if (large == nullptr || (*large & roundedOff) != 0) return std::nullopt;
  return static_cast<double>(*large);
}

std::optional<JSONValue> jsonLeaf(const DynamicValue& object) {
  if (const auto* flag = object.boolean()) return *flag;
  if (const auto integer = exactInteger(object)) return *integer;
  if (const auto real = exactReal(object)) return *real;
  if (const auto* text = object.string()) return *text;
  return std::nullopt;
}

std::optional<JSONValue> migratedLeaf(const DynamicValue& object) {
  if (const auto* flag = object.boolean()) return *flag;
  if (const auto integer = exactInteger(object)) return *integer;
  if (const auto* real = object.real()) return *real;
  if (const auto* large = object.unsignedInteger()) return static_cast<double>(*large);
  if (const auto* text = object.string()) return *text;
  if (object.kind() == DynamicValue::Kind::null) return JSONValue(Null{});
  fatalError("User Info Migration failed", {"UserInfo", "", 229});
}

}  // namespace

std::optional<JSONValue> toJSONValue(const DynamicValue* object) {
  return object != nullptr ? convert(*object, jsonLeaf) : std::nullopt;
}

JSONValue migratedJSONValue(const DynamicValue& object) { return *convert(object, migratedLeaf); }

}  // namespace kite
