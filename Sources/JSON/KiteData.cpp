#include <Kite/KiteData.h>

#include "JSON/CopyText.h"
#include "JSON/JSONWriter.h"
#include "JSON/UTF8.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <deque>
#include <type_traits>
#include <variant>

namespace kite {
namespace {

// A packed member is its kind, its name and its value; a text is its length and its bytes, a number
// or flag its own bytes.

std::size_t packedSize(std::string_view text) { return sizeof(std::size_t) + text.size(); }
std::size_t packedSize(const KiteValue&) { return 0; }
template <class Plain>
std::size_t packedSize(const Plain&) {
  return sizeof(Plain);
}
template <class Value>
std::size_t packedSize(std::string_view name, const Value& value) {
  return sizeof(char) + packedSize(name) + packedSize(value);
}

// Each writes where there is room for it, as `packedSize` tells, and gives the end.
template <class Plain>
char* pack(char* place, Plain plain) {
  std::memcpy(place, &plain, sizeof plain);
  return place + sizeof plain;
}
char* pack(char* place, std::string_view text) { return copyText(pack(place, text.size()), text); }
char* pack(char* place, const KiteValue&) { return place; }
template <class Kind, class Value>
char* pack(char* place, Kind kind, std::string_view name, const Value& value) {
  static_assert(sizeof(Kind) == sizeof(char));
  return pack(pack(pack(place, kind), name), value);
}

class Unpacker {
 public:
  explicit Unpacker(std::string_view packed) : _rest(packed) {}

  bool isAtEnd() const { return _rest.empty(); }
  template <class Plain>
  Plain take() {
    Plain plain;
    std::memcpy(&plain, bytes(sizeof plain).data(), sizeof plain);
    return plain;
  }
  std::string_view takeText() { return bytes(take<std::size_t>()); }

 private:
  std::string_view bytes(std::size_t size) {
    const auto result = _rest.substr(0, size);
    _rest.remove_prefix(size);
    return result;
  }

  std::string_view _rest;
};

}  // namespace

/// A value where it is: of `_packed`, or one of `_others`.
struct KiteData::Member {
  std::string_view name;
  std::variant<std::string_view, std::int64_t, double, bool, const KiteValue*> value;

  KiteValue copy() const {
    return std::visit(
        [](const auto& packed) -> KiteValue {
          if constexpr (std::is_pointer_v<std::remove_cvref_t<decltype(packed)>>) {
            return *packed;
          } else {
            return packed;
          }
        },
        value);
  }
};

KiteData::KiteData(std::initializer_list<Entry> entries) {
  const auto visit = [](const Entry& entry, auto body) {
    switch (entry._kind) {
      case Kind::text:
        return body(entry._text);
      case Kind::integer:
        return body(entry._integer);
      case Kind::real:
        return body(entry._real);
      case Kind::flag:
        return body(entry._flag);
      case Kind::other:
        return body(*entry._other);
    }
  };
  std::size_t size = 0;
  for (const Entry& entry : entries)
    visit(entry, [&](const auto& value) { size += packedSize(entry._name, value); });
  _packed.resize(size);
  char* place = _packed.data();
  for (const Entry& entry : entries) {
    visit(entry, [&](const auto& value) { place = pack(place, entry._kind, entry._name, value); });
    if (entry._other) _others.push_back(*entry._other);
  }
}

void KiteData::set(std::string_view name, const KiteValue& value) {
  const auto add = [&](Kind kind, const auto& plain) {
    const std::size_t size = _packed.size();
    _packed.resize(size + packedSize(name, plain));
    pack(_packed.data() + size, kind, name, plain);
  };
  const JSONValue& json = value._json;
  if (const auto* text = json.string()) return add(Kind::text, std::string_view(*text));
  if (const auto* integer = json.integer()) return add(Kind::integer, *integer);
  if (const auto* real = json.real()) return add(Kind::real, *real);
  if (const auto* flag = json.boolean()) return add(Kind::flag, *flag);
  _packed.reserve(_packed.size() + packedSize(name, value));
  _others.push_back(value);
  add(Kind::other, value);
}

KiteData::Members KiteData::members() const {
  constexpr std::size_t usualSize = 32;  // when packed
  Members members;
  members.reserve(_packed.size() / usualSize + 1);
  const KiteValue* other = _others.data();
  for (Unpacker rest(_packed); !rest.isAtEnd();) {
    const auto kind = rest.take<Kind>();
    auto& [name, value] = members.emplace_back();
    name = rest.takeText();
    switch (kind) {
      case Kind::text:
        value = rest.takeText();
        break;
      case Kind::integer:
        value = rest.take<std::int64_t>();
        break;
      case Kind::real:
        value = rest.take<double>();
        break;
      case Kind::flag:
        value = rest.take<bool>();
        break;
      case Kind::other:
        value = other++;
        break;
    }
  }
  return members;
}

std::optional<KiteValue> KiteData::at(std::string_view name) const {
  std::optional<KiteValue> found;
  for (const auto& member : members())
    if (member.name == name) found = member.copy();
  return found;
}

FlatMap<std::string, KiteValue> KiteData::values() const {
  FlatMap<std::string, KiteValue>::Entries entries;
  for (const auto& member : members()) entries.emplace_back(member.name, member.copy());
  return FlatMap<std::string, KiteValue>::fromUnsorted(std::move(entries));
}

void KiteData::requireJSON() const {
  for (const KiteValue& value : _others) value.requireJSON();
}

bool operator==(const KiteData& a, const KiteData& b) { return toJSONObject(a) == toJSONObject(b); }

KiteValue::KiteValue(const KiteData& data) {
  JSONValue::Object::Entries entries;
  for (const auto& member : data.members())
    entries.emplace_back(member.name, takeFrom(member.copy()));
  _json = JSONValue::Object::fromUnsorted(std::move(entries));
}

template <>
std::optional<KiteData> KiteValue::as<KiteData>() const {
  if (_json.object() == nullptr || _form == Form::outOfRange) return std::nullopt;
  KiteData data;
  for (const auto& [name, value] : *_json.object())
    if (!isGone(value)) data.set(name, KiteValue(value, _form));
  return data;
}

KiteData toKiteValue(const JSONValue::Object& members) {
  KiteData data;
  for (const auto& [name, value] : members)
    if (const auto converted = toKiteValue(value)) data.set(name, *converted);
  return data;
}

JSONValue::Object toJSONObject(const KiteData& data) {
  JSONValue::Object::Entries entries;
  for (const auto& member : data.members())
    entries.emplace_back(repairedUTF8(member.name), member.copy().toJSONValue());
  return JSONValue::Object::fromUnsorted(std::move(entries));
}

namespace {

/// The first bytes of a name as a number, so that numbers compare as names do.
std::uint64_t beginningOf(std::string_view name) {
  std::uint64_t bytes = 0;
  name.copy(reinterpret_cast<char*>(&bytes), sizeof bytes);
  return std::endian::native == std::endian::little ? __builtin_bswap64(bytes) : bytes;
}

/// A member to be sorted. Most names differ in their first bytes, which are quick to compare.
template <class Member>
struct Sortable {
  std::uint64_t beginning;
  const Member* member;

  bool operator<(const Sortable& other) const {
    if (beginning != other.beginning) return beginning < other.beginning;
    const int order = member->name.compare(other.member->name);
    return order == 0 ? member < other.member : order < 0;
  }
};

/// By name; of equal names the last one.
template <class Member>
std::vector<const Member*> sortedByName(const std::vector<Member>& members) {
  std::vector<Sortable<Member>> all;
  all.reserve(members.size());
  for (const auto& member : members) all.push_back({beginningOf(member.name), &member});
  std::sort(all.begin(), all.end());
  std::vector<const Member*> sorted;
  sorted.reserve(all.size());
  for (const auto& [beginning, member] : all) {
    if (!sorted.empty() && sorted.back()->name == member->name) sorted.pop_back();
    sorted.push_back(member);
  }
  return sorted;
}

}  // namespace

void JSONWriter::value(const KiteData& data) {
  std::deque<std::string> repaired;  // names that were not UTF-8: some may be equal now
  auto members = data.members();
  for (auto& [name, value] : members)
    if (!isUTF8(name)) name = repaired.emplace_back(repairedUTF8(name));
  beginObject();
  for (const auto* member : sortedByName(members)) {
    if (_error) return;
    key(member->name);
    if (const auto* text = std::get_if<std::string_view>(&member->value)) {
      string(*text);
    } else {
      value(member->copy().toJSONValue());
    }
  }
  endObject();
}

}  // namespace kite
