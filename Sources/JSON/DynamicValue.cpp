#include <Kite/DynamicValue.h>

#include <algorithm>
#include <utility>
#include <variant>

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

template <class Content, class Contents>
const Content* contentAs(const DeepShared<Contents>& contents) {
  return contents.isHole() ? nullptr : std::get_if<Content>(&(*contents).value);
}

}  // namespace

// Here and not in the header, because a variant takes long to compile.
struct DynamicValue::Contents {
  std::variant<bool, std::int64_t, std::uint64_t, double, NullObject, std::string, Array,
               Dictionary, Date, Data, Opaque>
      value;
};

DynamicValue::DynamicValue(Boolean boolean) : _contents(Contents{boolean.flag}) {}
DynamicValue::DynamicValue(int number) : _contents(Contents{std::int64_t{number}}) {}
DynamicValue::DynamicValue(std::int64_t number) : _contents(Contents{number}) {}
DynamicValue::DynamicValue(std::uint64_t number)
    : _contents(std::in_range<std::int64_t>(number) ? Contents{static_cast<std::int64_t>(number)}
                                                    : Contents{number}) {}
DynamicValue::DynamicValue(double number) : _contents(Contents{number}) {}
DynamicValue::DynamicValue(NullObject null) : _contents(Contents{null}) {}
DynamicValue::DynamicValue(std::string text) : _contents(Contents{std::move(text)}) {}
DynamicValue::DynamicValue(const char* text)
    : DynamicValue(text != nullptr ? DynamicValue(std::string(text)) : DynamicValue(NullObject{})) {
}
DynamicValue::DynamicValue(Array elements) : _contents(Contents{std::move(elements)}) {}
DynamicValue::DynamicValue(Dictionary entries) : _contents(Contents{std::move(entries)}) {}
DynamicValue::DynamicValue(Date date) : _contents(Contents{date}) {}
DynamicValue::DynamicValue(Data data) : _contents(Contents{std::move(data)}) {}
DynamicValue::DynamicValue(Opaque object) : _contents(Contents{std::move(object)}) {}

DynamicValue::Kind DynamicValue::kind() const {
  return _contents.isHole() ? Kind::null : static_cast<Kind>((*_contents).value.index());
}
const bool* DynamicValue::boolean() const { return contentAs<bool>(_contents); }
const std::int64_t* DynamicValue::integer() const { return contentAs<std::int64_t>(_contents); }
const std::uint64_t* DynamicValue::unsignedInteger() const {
  return contentAs<std::uint64_t>(_contents);
}
const double* DynamicValue::real() const { return contentAs<double>(_contents); }
const std::string* DynamicValue::string() const { return contentAs<std::string>(_contents); }
const DynamicValue::Array* DynamicValue::array() const { return contentAs<Array>(_contents); }
const DynamicValue::Dictionary* DynamicValue::dictionary() const {
  return contentAs<Dictionary>(_contents);
}
const Date* DynamicValue::date() const { return contentAs<Date>(_contents); }
const Data* DynamicValue::data() const { return contentAs<Data>(_contents); }
const DynamicValue::Opaque* DynamicValue::opaque() const { return contentAs<Opaque>(_contents); }

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
