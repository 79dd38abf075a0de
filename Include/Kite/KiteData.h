#pragma once

#include <Kite/Base/Export.h>
#include <Kite/Base/FlatMap.h>
#include <Kite/KiteValue.h>

#include <concepts>
#include <cstdint>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace kite {

/// What a host attaches to an event, a session or the user: names and values.
///
/// `{{"items", 3}, {"gift", true}, {"price", 12.5}}` reads just so; a nested map or list is spelled
/// out, `KiteData{…}` or `std::vector{…}`. Of values under one name the last one counts.
///
/// Made for writing: all that is put in is kept in one piece of memory, so that a tracking call
/// hands it over as it is. Reading takes it apart. Not for two threads at a time.
class KITE_EXPORT KiteData {
  enum class Kind : char { text, integer, real, flag, other };

 public:
  /// One name and value of a list in braces. Looks at names and texts where they are, so it lives
  /// no longer than its statement.
  class Entry {
   public:
    template <class V>
    requires std::constructible_from<KiteValue, V> Entry(std::string_view name, V&& value)
        : _name(name) {
      look(std::forward<V>(value));
    }
    Entry(const Entry&) = delete;
    Entry& operator=(const Entry&) = delete;

   private:
    friend class KiteData;

    template <class V>
    void look(V&& value);

    std::string_view _name;
    Kind _kind = Kind::other;
    // No variant, which would take longer to compile than all else here.
    union {
      std::string_view _text;
      std::int64_t _integer;
      double _real;
      bool _flag;
    };
    std::optional<KiteValue> _other;
  };

  KiteData() = default;
  KiteData(std::initializer_list<Entry> entries);
  template <class T, class Compare>
  requires std::constructible_from<KiteValue, const T&> KiteData(
      const std::map<std::string, T, Compare>& members) {
    for (const auto& [name, value] : members) set(name, value);
  }

  void set(std::string_view name, const KiteValue& value);

  bool empty() const { return _packed.empty(); }
  bool contains(std::string_view name) const { return at(name).has_value(); }
  /// The value under `name`, or nothing.
  std::optional<KiteValue> at(std::string_view name) const;
  /// All that is in it, in the order of the names.
  FlatMap<std::string, KiteValue> values() const;

  /// Stops the process when something in it has no JSON form.
  void requireJSON() const;

  /// Whether both become the same JSON.
  friend KITE_EXPORT bool operator==(const KiteData& a, const KiteData& b);

 private:
  friend class KiteValue;
  friend class JSONWriter;
  friend KITE_EXPORT JSONValue::Object toJSONObject(const KiteData& data);

  struct Member;
  using Members = std::vector<Member>;

  /// In the order in which they were put in.
  Members members() const;

  std::string _packed;             // one after the other: kind, name, value
  std::vector<KiteValue> _others;  // values that are more than a text, a number or a flag
};

template <class V>
void KiteData::Entry::look(V&& value) {
  using Plain = std::remove_cvref_t<V>;
  constexpr bool isNull = std::is_null_pointer_v<Plain>;
  if constexpr (std::same_as<Plain, bool>) {
    _kind = Kind::flag;
    _flag = value;
  } else if constexpr (std::floating_point<Plain>) {
    _kind = Kind::real;
    _real = static_cast<double>(value);
  } else if constexpr (KiteInteger<Plain>) {
    if (!std::in_range<std::int64_t>(value)) {
      _other.emplace(value);
      return;
    }
    _kind = Kind::integer;
    _integer = static_cast<std::int64_t>(value);
  } else if constexpr (std::convertible_to<V, const char*> && !isNull) {
    const char* const text = value;
    if (text == nullptr) {
      _other.emplace();
      return;
    }
    _kind = Kind::text;
    _text = text;
  } else if constexpr (std::convertible_to<V, std::string_view> && !isNull) {
    _kind = Kind::text;
    _text = value;
  } else {
    _other.emplace(std::forward<V>(value));
  }
}

template <class T, class Compare>
requires std::constructible_from<KiteValue, const T&> KiteValue::KiteValue(
    const std::map<std::string, T, Compare>& members)
    : KiteValue(KiteData(members)) {}

KITE_EXPORT KiteData toKiteValue(const JSONValue::Object& members);

/// The host's data as the library keeps it.
KITE_EXPORT JSONValue::Object toJSONObject(const KiteData& data);

}  // namespace kite
