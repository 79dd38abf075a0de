#include <Kite/KiteData.h>

#include "JSON/PackedMembers.h"
#include "JSON/UTF8.h"

namespace kite {
using PackedMembers::Kind;
using PackedMembers::packedSize;
using PackedMembers::Packing;
using PackedMembers::Unpacking;

KiteData::KiteData(std::initializer_list<Entry> entries) {
  std::size_t size = 0;
  for (const Entry& entry : entries)
    std::visit([&](const auto& value) { size += packedSize(entry._name, value); }, entry._value);
  _packed.resize(size);
  Packing packing(_packed.data());
  for (const Entry& entry : entries) {
    std::visit([&](const auto& value) { packing.add(entry._name, value); }, entry._value);
    if (const auto* other = std::get_if<KiteValue>(&entry._value)) _others.push_back(*other);
  }
}

template <class Value>
void KiteData::pack(std::string_view name, const Value& value) {
  const std::size_t size = _packed.size();
  _packed.resize(size + packedSize(name, value));
  Packing(_packed.data() + size).add(name, value);
}

/// `each(name, value)`, with every value as it was packed, in the order of packing.
template <class Visit>
void KiteData::visit(Visit each) const {
  auto other = _others.begin();
  for (Unpacking rest(_packed); !rest.isAtEnd();) {
    const Kind kind = rest.kind();
    const std::string_view name = rest.text();
    switch (kind) {
      case Kind::text:
        each(name, rest.text());
        break;
      case Kind::integer:
        each(name, rest.number<std::int64_t>());
        break;
      case Kind::real:
        each(name, rest.number<double>());
        break;
      case Kind::no:
      case Kind::yes:
        each(name, kind == Kind::yes);
        break;
      case Kind::other:
        each(name, *other++);
        break;
    }
  }
}

void KiteData::set(std::string_view name, const KiteValue& value) {
  const JSONValue& json = value._json;
  if (const auto* text = json.string()) return pack(name, std::string_view(*text));
  if (const auto* integer = json.integer()) return pack(name, *integer);
  if (const auto* real = json.real()) return pack(name, *real);
  if (const auto* flag = json.boolean()) return pack(name, *flag);
  _packed.reserve(_packed.size() + packedSize(name, value));
  _others.push_back(value);
  pack(name, value);
}

std::optional<KiteValue> KiteData::at(std::string_view name) const {
  std::optional<KiteValue> found;
  visit([&](std::string_view each, const auto& value) {
    if (each == name) found.emplace(value);
  });
  return found;
}

FlatMap<std::string, KiteValue> KiteData::values() const {
  FlatMap<std::string, KiteValue>::Entries entries;
  visit([&](std::string_view name, const auto& value) { entries.emplace_back(name, value); });
  return FlatMap<std::string, KiteValue>::fromUnsorted(std::move(entries));
}

void KiteData::requireJSON() const {
  for (const KiteValue& value : _others) value.requireJSON();
}

bool operator==(const KiteData& a, const KiteData& b) { return toJSONObject(a) == toJSONObject(b); }

KiteValue::KiteValue(const KiteData& members) {
  JSONValue::Object::Entries entries;
  members.visit([&](std::string_view name, const auto& value) {
    entries.emplace_back(name, takeFrom(value));
  });
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
  data.visit([&](std::string_view name, const auto& value) {
    if constexpr (std::is_same_v<decltype(value), const KiteValue&>) {
      entries.emplace_back(repairedUTF8(name), value.toJSONValue());
    } else {
      entries.emplace_back(repairedUTF8(name), value);
    }
  });
  return JSONValue::Object::fromUnsorted(std::move(entries));
}

}  // namespace kite
