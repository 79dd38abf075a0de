#include "Collector/Checks/EventRules.h"

#include "Collector/Checks/ObjectRules.h"
#include "Collector/Checks/UUIDText.h"
#include "Events/EventKinds.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <vector>

namespace kite::tool {
namespace {

using simdjson::dom::element;
using namespace shape;

template <std::size_t count>
bool isOneOf(const std::array<std::string_view, count>& texts, const element& value) {
  std::string_view text;
  return value.get(text) == simdjson::SUCCESS && std::ranges::find(texts, text) != texts.end();
}

bool isSeverity(const element& value) {
  constexpr std::array<std::string_view, 5> severities{"Debug", "Notice", "Warning", "Error",
                                                       "Critical"};
  return isOneOf(severities, value);
}

bool isIdentifierStatus(const element& value) {
  constexpr std::array<std::string_view, 3> statuses{"not_applicable", "just_generated",
                                                     "read_from_file"};
  return isOneOf(statuses, value);
}

bool isSubtype(const element& value) {
  constexpr std::array<std::string_view, 2> subtypes{"session_start", "session_end"};
  return isOneOf(subtypes, value);
}

constexpr std::string_view uuidForm = "an upper-case UUID";

constexpr std::array eventRules{MemberRule{"type", isNonEmptyString, "a non-empty string"},
                                MemberRule{"id", isUUID, uuidForm},
                                MemberRule{"timestamp", isNumber, "a number"},
                                MemberRule{"request_timestamp", isNumber, "a number"},
                                MemberRule{"app", isString, "a string"},
                                MemberRule{"user", isObject, "an object"},
                                MemberRule{"data", isObject, "an object"}};

constexpr std::array userRules{MemberRule{"info", isObject, "an object"},
                               MemberRule{"ids", isObjectOfStrings, "an object of strings"}};

/// What a value of a type in a payload must be like as JSON.
struct Shape {
  bool (*fits)(const element& value);
  std::string_view mustBe;
};
Shape shapeOf(const bool*) { return {isBoolean, "a boolean"}; }
Shape shapeOf(const double*) { return {isNumber, "a number"}; }
Shape shapeOf(const std::uint64_t*) { return {isUnsignedInteger, "an integer, zero or more"}; }
Shape shapeOf(const std::string*) { return {isString, "a string"}; }
Shape shapeOf(const ShortText*) { return {isString, "a string"}; }
Shape shapeOf(const UUID*) { return {isUUID, uuidForm}; }
Shape shapeOf(const KiteData*) { return {isObject, "an object"}; }
Shape shapeOf(const JSONValue::Object*) { return {isObject, "an object"}; }
Shape shapeOf(const std::vector<std::string>*) { return {isStrings, "an array of strings"}; }
Shape shapeOf(const Severity*) { return {isSeverity, "Debug, Notice, Warning, Error or Critical"}; }
Shape shapeOf(const Usher::CreationType*) {
  return {isIdentifierStatus, "not_applicable, just_generated or read_from_file"};
}
/// The text by which a session's start and its end are told apart.
Shape shapeOf(const std::string_view*) { return {isSubtype, "session_start or session_end"}; }
Shape shapeOf(const std::optional<std::string>*) { return {isStringOrNull, "a string or null"}; }
Shape shapeOf(const std::optional<double>*) { return {isNumberOrNull, "a number or null"}; }
Shape shapeOf(const std::optional<UUID>*) { return {isUUIDOrNull, "an upper-case UUID or null"}; }

/// Makes a rule of each member that is described.
class RuleMaker {
 public:
  explicit RuleMaker(bool areRequired) : _areRequired(areRequired) {}

  template <class Value>
  void operator()(std::string_view key, const Value&) {
    add<Value>(key, _areRequired);
  }
  template <class Value>
  void ifPresent(std::string_view key, const std::optional<Value>&) {
    add<Value>(key, false);
  }

  std::vector<MemberRule> rules;

 private:
  template <class Value>
  void add(std::string_view key, bool isRequired) {
    const auto [fits, mustBe] = shapeOf(static_cast<const Value*>(nullptr));
    rules.push_back({key, fits, mustBe, isRequired});
  }

  bool _areRequired;
};

template <class Payload>
std::vector<MemberRule> rulesOf() {
  RuleMaker maker(/*areRequired=*/true);
  describe(maker, Payload{});
  return std::move(maker.rules);
}

/// With the storefront's entries, which are optional.
template <class Payload>
std::vector<MemberRule> rulesWithStorefront() {
  auto rules = rulesOf<Payload>();
  RuleMaker maker(/*areRequired=*/false);
  describe(maker, Storefront{});
  rules.insert(rules.end(), maker.rules.begin(), maker.rules.end());
  return rules;
}

constexpr std::array subtypeRules{MemberRule{"subtype", isSubtype, "session_start or session_end"}};

std::string_view text(const simdjson::dom::object& object, std::string_view key) {
  std::string_view value;
  return object.at_key(key).get(value) == simdjson::SUCCESS ? value : std::string_view();
}

/// The object under that key, which was checked before.
simdjson::dom::object member(const simdjson::dom::object& object, std::string_view key) {
  return object.at_key(key);
}

template <class Payload>
std::optional<std::string> describedViolation(const simdjson::dom::object& data) {
  static const auto rules = rulesOf<Payload>();
  return violation(data, rules, OtherMembers::refused, "data");
}

std::optional<std::string> exactly(const simdjson::dom::object& data,
                                   std::span<const MemberRule> rules) {
  return violation(data, rules, OtherMembers::refused, "data");
}

/// A storefront is known whole or not at all.
std::optional<std::string> halfStorefront(const simdjson::dom::object& data) {
  constexpr std::array<std::string_view, 2> keys{"storefront_id", "storefront_country_code"};
  const auto isMissing = [&data](std::string_view key) { return data.at_key(key).error() != 0; };
  if (std::ranges::count_if(keys, isMissing) != 1) return std::nullopt;
  return fmt::format("data.{} is missing", *std::ranges::find_if(keys, isMissing));
}

std::optional<std::string> installViolation(const simdjson::dom::object& data) {
  static const auto rules = rulesWithStorefront<InstallPayload>();
  if (auto found = exactly(data, rules)) return found;
  return halfStorefront(data);
}

std::optional<std::string> sessionViolation(const simdjson::dom::object& data) {
  if (auto found = violation(data, subtypeRules, OtherMembers::allowed, "data")) return found;
  if (text(data, "subtype") == "session_end") {  // which carries what the host attached, too
    static const auto rules = rulesOf<SessionEndPayload>();
    return violation(data, rules, OtherMembers::allowed, "data");
  }
  static const auto rules = rulesWithStorefront<SessionStartPayload>();
  if (auto found = exactly(data, rules)) return found;
  return halfStorefront(data);
}

std::optional<std::string> dataViolation(std::string_view type, const simdjson::dom::object& data) {
  if (type == "Session") return sessionViolation(data);
  if (type == "ExperimentSegmentReceived")
    return describedViolation<ExperimentSegmentsReceived>(data);
  if (type == "Install") return installViolation(data);
  if (type == "UserAction") return describedViolation<UserAction::Payload>(data);
  if (type == "UserInfoUpdated") return describedViolation<UserInfoUpdated::Payload>(data);
  if (type == "DebugEvent") return describedViolation<DebugEvent::Payload>(data);
  return std::nullopt;
}

std::optional<std::string> violation(const simdjson::dom::object& event, std::string_view app) {
  if (auto found = violation(event, eventRules, OtherMembers::refused, "")) return found;
  if (text(event, "app") != app) return "app must be the Lumo-Id";
  if (auto found = violation(member(event, "user"), userRules, OtherMembers::refused, "user")) {
    return found;
  }
  return dataViolation(text(event, "type"), member(event, "data"));
}

std::string nameOf(const simdjson::dom::object& event, std::size_t position) {
  const std::string_view id = text(event, "id");
  return isUpperCaseUUID(id) ? fmt::format("event {}", id)
                             : fmt::format("event at position {}", position);
}

}  // namespace

std::optional<std::string> eventViolation(const element& event, std::size_t position,
                                          std::string_view app) {
  simdjson::dom::object object;
  if (event.get(object) != simdjson::SUCCESS) {
    return fmt::format("event at position {}: must be an object", position);
  }
  const auto found = violation(object, app);
  if (!found) return std::nullopt;
  return fmt::format("{}: {}", nameOf(object, position), *found);
}

}  // namespace kite::tool
