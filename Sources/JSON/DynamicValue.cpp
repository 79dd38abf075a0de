#include <Kite/DynamicValue.h>

#include <algorithm>
#include <limits>
#include <utility>

namespace kite {
namespace {

using Pairs = std::vector<std::pair<const DynamicValue*, const DynamicValue*>>;

void addPairs(const DynamicValue::Array& a, const DynamicValue::Array& b, Pairs& pairs) {
  for (std::size_t i = 0; i < a.size(); ++i) pairs.emplace_back(&a[i], &b[i]);
}

void addPairs(const DynamicValue::Dictionary& a, const DynamicValue::Dictionary& b, Pairs& pairs) {
  for (std::size_t i = 0; i < a.size(); ++i) {
    pairs.emplace_back(&a[i].key, &b[i].key);
    pairs.emplace_back(&a[i].value, &b[i].value);
  }
}

/// Whether both are the same outside; what is inside them is added to `pairs`.
template <class Container>
bool open(const Container& a, const Container& b, Pairs& pairs) {
  if (&a == &b) return true;
  if (a.size() != b.size()) return false;
  addPairs(a, b, pairs);
  return true;
}

bool match(const DynamicValue& a, const DynamicValue& b, Pairs& pairs) {
  if (a.kind() != b.kind()) return false;
  if (a.array()) return open(*a.array(), *b.array(), pairs);
  if (a.dictionary()) return open(*a.dictionary(), *b.dictionary(), pairs);
  // Contents of another kind are null in both.
  const auto areSame = [](const auto* left, const auto* right) {
    return left == nullptr || *left == *right;
  };
  return areSame(a.boolean(), b.boolean()) && areSame(a.integer(), b.integer()) &&
         areSame(a.unsignedInteger(), b.unsignedInteger()) && areSame(a.real(), b.real()) &&
         areSame(a.string(), b.string()) && areSame(a.date(), b.date()) &&
         areSame(a.data(), b.data()) && areSame(a.opaque(), b.opaque());
}

}  // namespace

// Here and not in the header, because what a variant is made of takes long to compile.
DynamicValue::DynamicValue(Boolean boolean) : _value(boolean.flag) {}
DynamicValue::DynamicValue(int number) : _value(std::int64_t{number}) {}
DynamicValue::DynamicValue(std::int64_t number) : _value(number) {}
DynamicValue::DynamicValue(std::uint64_t number) : _value(number) {
  if (std::in_range<std::int64_t>(number)) _value = static_cast<std::int64_t>(number);
}
DynamicValue::DynamicValue(double number) : _value(number) {}
DynamicValue::DynamicValue(NullObject null) : _value(null) {}
DynamicValue::DynamicValue(std::string text) : _value(std::move(text)) {}
DynamicValue::DynamicValue(const char* text)
    : DynamicValue(text != nullptr ? DynamicValue(std::string(text)) : DynamicValue(NullObject{})) {
}
DynamicValue::DynamicValue(Date date) : _value(date) {}
DynamicValue::DynamicValue(Data data) : _value(std::move(data)) {}
DynamicValue::DynamicValue(Opaque object) : _value(std::move(object)) {}
DynamicValue::DynamicValue(Array elements) : _value(DeepShared<Array>(std::move(elements))) {}
DynamicValue::DynamicValue(Dictionary entries)
    : _value(DeepShared<Dictionary>(std::move(entries))) {}

DynamicValue::DynamicValue(const DynamicValue&) = default;
DynamicValue::DynamicValue(DynamicValue&& other) noexcept : _value(std::move(other._value)) {
  other._value = NullObject{};
}
DynamicValue& DynamicValue::operator=(const DynamicValue& other) {
  return *this = DynamicValue(other);
}
DynamicValue& DynamicValue::operator=(DynamicValue&& other) noexcept {
  _value.swap(other._value);
  other._value = NullObject{};
  return *this;
}
DynamicValue::~DynamicValue() = default;

DynamicValue::Kind DynamicValue::kind() const { return static_cast<Kind>(_value.index()); }
const bool* DynamicValue::boolean() const { return std::get_if<bool>(&_value); }
const std::int64_t* DynamicValue::integer() const { return std::get_if<std::int64_t>(&_value); }
const std::uint64_t* DynamicValue::unsignedInteger() const {
  return std::get_if<std::uint64_t>(&_value);
}
const double* DynamicValue::real() const { return std::get_if<double>(&_value); }
const std::string* DynamicValue::string() const { return std::get_if<std::string>(&_value); }
const Date* DynamicValue::date() const { return std::get_if<Date>(&_value); }
const Data* DynamicValue::data() const { return std::get_if<Data>(&_value); }
const DynamicValue::Opaque* DynamicValue::opaque() const { return std::get_if<Opaque>(&_value); }
const DynamicValue::Array* DynamicValue::array() const {
  const auto* elements = std::get_if<DeepShared<Array>>(&_value);
  return elements != nullptr ? &**elements : nullptr;
}

const DynamicValue::Dictionary* DynamicValue::dictionary() const {
  const auto* entries = std::get_if<DeepShared<Dictionary>>(&_value);
  return entries != nullptr ? &**entries : nullptr;
}

bool operator==(const DynamicValue& a, const DynamicValue& b) {
  Pairs pairs;
  if (!match(a, b, pairs)) return false;
  while (!pairs.empty()) {
    const auto [left, right] = pairs.back();
    pairs.pop_back();
    if (!match(*left, *right, pairs)) return false;
  }
  return true;
}

const DynamicValue* valueFor(const DynamicValue::Dictionary& dictionary, std::string_view key) {
  const auto entry = std::ranges::find_if(dictionary, [key](const DynamicValue::Entry& candidate) {
    const auto* text = candidate.key.string();
    return text != nullptr && *text == key;
  });
  return entry != dictionary.end() ? &entry->value : nullptr;
}

}  // namespace kite
