#include <Kite/KiteData.h>

#include "Values/UTF8.h"

#include <cstring>

namespace kite {
namespace {

enum class Kind : char { text, integer, real, no, yes, other };

/// Seven bits at a time, the lowest first; all but the last have the eighth bit set.
void packLength(std::string& out, std::size_t length) {
  for (; length >= 0x80; length >>= 7) out.push_back(static_cast<char>(length | 0x80));
  out.push_back(static_cast<char>(length));
}

void packText(std::string& out, std::string_view text) {
  packLength(out, text.size());
  out.append(text);
}

template <class Number>
void packNumber(std::string& out, Number number) {
  out.append(reinterpret_cast<const char*>(&number), sizeof number);
}

void packHead(std::string& out, Kind kind, std::string_view name) {
  out.push_back(static_cast<char>(kind));
  packText(out, name);
}

class Unpacking {
 public:
  explicit Unpacking(std::string_view packed) : _rest(packed) {}

  bool isAtEnd() const { return _rest.empty(); }
  Kind kind() { return static_cast<Kind>(byte()); }
  std::string_view text() {
    const std::size_t size = length();
    const auto result = _rest.substr(0, size);
    _rest.remove_prefix(size);
    return result;
  }
  template <class Number>
  Number number() {
    Number result;
    std::memcpy(&result, _rest.data(), sizeof result);
    _rest.remove_prefix(sizeof result);
    return result;
  }

 private:
  std::uint8_t byte() {
    const auto result = static_cast<std::uint8_t>(_rest.front());
    _rest.remove_prefix(1);
    return result;
  }
  std::size_t length() {
    std::size_t result = 0;
    for (unsigned shift = 0;; shift += 7) {
      const std::size_t seven = byte();
      result |= (seven & 0x7F) << shift;
      if (seven < 0x80) return result;
    }
  }

  std::string_view _rest;
};

}  // namespace

template class FlatMap<std::string, KiteValue>;

KiteData::KiteData(std::initializer_list<Entry> entries) {
  constexpr std::size_t kindLengthsAndNumber = 12;
  std::size_t size = 0;
  for (const Entry& entry : entries) {
    const auto* text = std::get_if<std::string_view>(&entry._value);
    size += kindLengthsAndNumber + entry._name.size() + (text ? text->size() : 0);
  }
  _packed.reserve(size);
  for (const Entry& entry : entries)
    std::visit([&](const auto& value) { pack(entry._name, value); }, entry._value);
}

void KiteData::pack(std::string_view name, std::string_view text) {
  packHead(_packed, Kind::text, name);
  packText(_packed, text);
}

void KiteData::pack(std::string_view name, std::int64_t number) {
  packHead(_packed, Kind::integer, name);
  packNumber(_packed, number);
}

void KiteData::pack(std::string_view name, double number) {
  packHead(_packed, Kind::real, name);
  packNumber(_packed, number);
}

void KiteData::pack(std::string_view name, bool flag) {
  packHead(_packed, flag ? Kind::yes : Kind::no, name);
}

void KiteData::pack(std::string_view name, const KiteValue& value) {
  packHead(_packed, Kind::other, name);
  _others.push_back(value);
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
