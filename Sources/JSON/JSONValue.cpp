#include <Kite/JSONValue.h>

#include "JSON/UTF8.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace kite {

template class FlatMap<std::string, JSONValue>;

namespace {

JSONValue::Object withRepairedKeys(JSONValue::Object members) {
  if (std::ranges::all_of(members, [](const auto& member) { return isUTF8(member.first); }))
    return members;
  JSONValue::Object::Entries entries(std::move_iterator(members.begin()),
                                     std::move_iterator(members.end()));
  for (auto& [key, value] : entries) key = repairedUTF8(std::move(key));
  return JSONValue::Object::fromUnsorted(std::move(entries));
}

/// Compares two values level by level; containers inside them wait their turn in a list.
class Comparison {
 public:
  bool areEqual(const JSONValue& a, const JSONValue& b) {
    if (!match(a, b)) return false;
    while (!_waiting.empty()) {
      const auto [left, right] = _waiting.back();
      _waiting.pop_back();
      if (!match(*left, *right)) return false;
    }
    return true;
  }

 private:
  bool match(const JSONValue& a, const JSONValue& b) {
    if (a.kind() != b.kind()) return false;
    if (a.object()) return matchMembers(*a.object(), *b.object());
    if (a.array()) return matchElements(*a.array(), *b.array());
    return matchScalars(a, b);
  }
  bool matchMembers(const JSONValue::Object& a, const JSONValue::Object& b) {
    return &a == &b || std::ranges::equal(a, b, [this](const auto& left, const auto& right) {
      return left.first == right.first && matchInner(left.second, right.second);
    });
  }
  bool matchElements(const JSONValue::Array& a, const JSONValue::Array& b) {
    return &a == &b || std::ranges::equal(a, b, [this](const auto& left, const auto& right) {
      return matchInner(left, right);
    });
  }
  bool matchInner(const JSONValue& a, const JSONValue& b) {
    const bool isContainer = a.object() != nullptr || a.array() != nullptr;
    if (!isContainer) return match(a, b);
    _waiting.emplace_back(&a, &b);
    return true;
  }
  /// Of two values of one kind; contents of another kind are null in both.
  static bool matchScalars(const JSONValue& a, const JSONValue& b) {
    const auto areSame = [](const auto* left, const auto* right) {
      return left == nullptr || *left == *right;
    };
    return areSame(a.string(), b.string()) && areSame(a.integer(), b.integer()) &&
           areSame(a.real(), b.real()) && areSame(a.boolean(), b.boolean()) &&
           areSame(a.date(), b.date());
  }

  std::vector<std::pair<const JSONValue*, const JSONValue*>> _waiting;
};

}  // namespace

// Here and not in the header, because what a variant is made of takes long to compile.
JSONValue::JSONValue() noexcept : _value(Null{}) {}
JSONValue::JSONValue(Boolean boolean) noexcept : _value(boolean.flag) {}
JSONValue::JSONValue(std::int64_t number) noexcept : _value(number) {}
JSONValue::JSONValue(double number) noexcept : _value(number) {}
JSONValue::JSONValue(Date date) noexcept : _value(date) {}
JSONValue::JSONValue(const JSONValue&) = default;
JSONValue::JSONValue(JSONValue&& other) noexcept : _value(std::move(other._value)) {
  other._value = Null{};
}
JSONValue::~JSONValue() = default;
JSONValue& JSONValue::operator=(const JSONValue& other) { return *this = JSONValue(other); }
JSONValue& JSONValue::operator=(JSONValue&& other) noexcept {
  _value.swap(other._value);
  other._value = Null{};
  return *this;
}

JSONValue::JSONValue(std::string text) : _value(repairedUTF8(std::move(text))) {}
JSONValue::JSONValue(std::string_view text) : _value(repairedUTF8(text)) {}
JSONValue::JSONValue(const char* text)
    : JSONValue(text != nullptr ? JSONValue(std::string_view(text)) : JSONValue()) {}
JSONValue::JSONValue(Object members)
    : _value(DeepShared<Object>(withRepairedKeys(std::move(members)))) {}
JSONValue::JSONValue(Array elements) : _value(DeepShared<Array>(std::move(elements))) {}

bool operator==(const JSONValue& a, const JSONValue& b) { return Comparison().areEqual(a, b); }

}  // namespace kite
