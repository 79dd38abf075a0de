#pragma once

#include <simdjson.h>

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace kite::tool {

/// What one member of an object must be like.
struct MemberRule {
  std::string_view key;
  bool (*fits)(const simdjson::dom::element& value);
  std::string_view mustBe;  ///< said of a value that does not fit, "must be …"
  bool isRequired = true;
};

enum class OtherMembers { refused, allowed };

/// What is wrong with the object by these rules, or nothing. `path` names the object in the text,
/// such as "data"; it is empty for the outermost one.
std::optional<std::string> violation(const simdjson::dom::object& object,
                                     std::span<const MemberRule> rules, OtherMembers others,
                                     std::string_view path);

/// A key that some object anywhere in the value has twice, or nothing.
std::optional<std::string> repeatedKey(const simdjson::dom::element& value);

namespace shape {

bool isString(const simdjson::dom::element& value);
bool isNonEmptyString(const simdjson::dom::element& value);
bool isStringOrNull(const simdjson::dom::element& value);
bool isStrings(const simdjson::dom::element& value);
bool isUUID(const simdjson::dom::element& value);
bool isUUIDOrNull(const simdjson::dom::element& value);
bool isBoolean(const simdjson::dom::element& value);
bool isNumber(const simdjson::dom::element& value);
bool isNumberOrNull(const simdjson::dom::element& value);
/// An integer of zero or more, written without a fraction.
bool isUnsignedInteger(const simdjson::dom::element& value);
bool isObject(const simdjson::dom::element& value);
bool isObjectOfStrings(const simdjson::dom::element& value);
bool isArray(const simdjson::dom::element& value);

}  // namespace shape

}  // namespace kite::tool
