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

DynamicValue::DynamicValue(std::uint64_t number) : _value(number) {
  if (std::in_range<std::int64_t>(number)) _value = static_cast<std::int64_t>(number);
}
DynamicValue::DynamicValue(Array elements) : _value(DeepShared<Array>(std::move(elements))) {}
DynamicValue::DynamicValue(Dictionary entries)
    : _value(DeepShared<Dictionary>(std::move(entries))) {}

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
