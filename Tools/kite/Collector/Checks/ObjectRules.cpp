#include "Collector/Checks/ObjectRules.h"

#include "Collector/Checks/UUIDText.h"
#include "Collector/JSONText.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

namespace kite::tool {

using simdjson::dom::element;

namespace {

constexpr std::size_t longestKeyShown = 64;

std::string pathTo(std::string_view path, std::string_view key) {
  const std::string shown = clipped(key, longestKeyShown);
  return path.empty() ? shown : fmt::format("{}.{}", path, shown);
}

std::optional<std::string> violation(const simdjson::dom::object& object, const MemberRule& rule,
                                     std::string_view path) {
  element value;
  if (object.at_key(rule.key).get(value) != simdjson::SUCCESS) {
    if (!rule.isRequired) return std::nullopt;
    return pathTo(path, rule.key) + " is missing";
  }
  if (rule.fits(value)) return std::nullopt;
  return fmt::format("{} must be {}", pathTo(path, rule.key), rule.mustBe);
}

bool isShorter(std::string_view one, std::string_view other) {
  return one.size() != other.size() ? one.size() < other.size() : one < other;
}

/// The keys of the objects around the one that is looked at, one behind the other, so that no
/// object needs a list of its own.
using Keys = std::vector<std::string_view>;

std::optional<std::string> repeatedKey(const element& value, Keys& keys) {
  simdjson::dom::array array;
  if (value.get(array) == simdjson::SUCCESS) {
    for (const element& each : array) {
      if (auto found = repeatedKey(each, keys)) return found;
    }
    return std::nullopt;
  }
  simdjson::dom::object object;
  if (value.get(object) != simdjson::SUCCESS) return std::nullopt;
  const auto before = static_cast<std::ptrdiff_t>(keys.size());
  for (const auto& [key, member] : object) {
    keys.push_back(key);
    const bool isNested = member.is_object() || member.is_array();
    if (auto found = isNested ? repeatedKey(member, keys) : std::nullopt) return found;
  }
  const auto own = keys.begin() + before;
  std::sort(own, keys.end(), isShorter);
  const auto twin = std::adjacent_find(own, keys.end());
  if (twin != keys.end()) return clipped(*twin, longestKeyShown);
  keys.erase(own, keys.end());
  return std::nullopt;
}

}  // namespace

std::optional<std::string> violation(const simdjson::dom::object& object,
                                     std::span<const MemberRule> rules, OtherMembers others,
                                     std::string_view path) {
  for (const MemberRule& rule : rules) {
    if (auto found = violation(object, rule, path)) return found;
  }
  if (others == OtherMembers::allowed) return std::nullopt;
  for (const auto& [key, value] : object) {
    if (std::ranges::find(rules, key, &MemberRule::key) == rules.end()) {
      return pathTo(path, key) + " is unknown";
    }
  }
  return std::nullopt;
}

std::optional<std::string> repeatedKey(const element& value) {
  Keys keys;
  return repeatedKey(value, keys);
}

namespace shape {
namespace {

template <class Fits>
bool allElements(const element& value, Fits fits) {
  simdjson::dom::array array;
  return value.get(array) == simdjson::SUCCESS && std::all_of(array.begin(), array.end(), fits);
}

}  // namespace

bool isString(const element& value) { return value.is_string(); }

bool isNonEmptyString(const element& value) {
  std::string_view text;
  return value.get(text) == simdjson::SUCCESS && !text.empty();
}

bool isStringOrNull(const element& value) { return value.is_null() || isString(value); }
bool isStrings(const element& value) { return allElements(value, isString); }

bool isUUID(const element& value) {
  std::string_view text;
  return value.get(text) == simdjson::SUCCESS && isUpperCaseUUID(text);
}

bool isUUIDOrNull(const element& value) { return value.is_null() || isUUID(value); }
bool isBoolean(const element& value) { return value.is_bool(); }
bool isNumber(const element& value) { return value.is_number(); }
bool isNumberOrNull(const element& value) { return value.is_null() || isNumber(value); }

bool isUnsignedInteger(const element& value) {
  std::int64_t number = 0;
  return value.type() == simdjson::dom::element_type::INT64 &&
         value.get(number) == simdjson::SUCCESS && number >= 0;
}

bool isObject(const element& value) { return value.is_object(); }

bool isObjectOfStrings(const element& value) {
  simdjson::dom::object object;
  if (value.get(object) != simdjson::SUCCESS) return false;
  return std::all_of(object.begin(), object.end(),
                     [](const auto& member) { return isString(member.value); });
}

bool isArray(const element& value) { return value.is_array(); }

}  // namespace shape

}  // namespace kite::tool
