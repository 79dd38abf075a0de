#include "Collector/EventRules.h"

#include "Collector/ObjectRules.h"
#include "Collector/UUIDText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

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
constexpr std::string_view statusForm = "not_applicable, just_generated or read_from_file";
constexpr bool notRequired = false;

constexpr std::array eventRules{MemberRule{"type", isNonEmptyString, "a non-empty string"},
                                MemberRule{"id", isUUID, uuidForm},
                                MemberRule{"timestamp", isNumber, "a number"},
                                MemberRule{"request_timestamp", isNumber, "a number"},
                                MemberRule{"app", isString, "a string"},
                                MemberRule{"user", isObject, "an object"},
                                MemberRule{"data", isObject, "an object"}};

constexpr std::array userRules{MemberRule{"info", isObject, "an object"},
                               MemberRule{"ids", isObjectOfStrings, "an object of strings"}};

constexpr std::array installRules{
    MemberRule{"installed_before_kite", isBoolean, "a boolean"},
    MemberRule{"keychain_id_status", isIdentifierStatus, statusForm},
    MemberRule{"userdefault_id_status", isIdentifierStatus, statusForm},
    MemberRule{"new_app_version", isString, "a string"},
    MemberRule{"document_directory_creation_timestamp", isNumberOrNull, "a number or null"},
    MemberRule{"old_bundle_version", isString, "a string", notRequired},
    MemberRule{"old_app_version", isString, "a string", notRequired},
    MemberRule{"storefront_id", isString, "a string", notRequired},
    MemberRule{"storefront_country_code", isString, "a string", notRequired}};

constexpr std::array subtypeRules{MemberRule{"subtype", isSubtype, "session_start or session_end"}};

constexpr std::array sessionStartRules{
    MemberRule{"subtype", isSubtype, "session_start or session_end"},
    MemberRule{"storefront_id", isString, "a string", notRequired},
    MemberRule{"storefront_country_code", isString, "a string", notRequired}};

// Beside these a session's end carries whatever the host attached to the session.
constexpr std::array sessionEndRules{MemberRule{"session_start_id", isUUID, uuidForm},
                                     MemberRule{"crashed", isBoolean, "a boolean"},
                                     MemberRule{"duration", isNumber, "a number"}};

constexpr std::array userInfoUpdatedRules{
    MemberRule{"old_user_info", isObject, "an object"},
    MemberRule{"new_user_info", isObject, "an object"},
    MemberRule{"updated_keys", isStrings, "an array of strings"},
    MemberRule{"lost_keys", isStrings, "an array of strings"}};

constexpr std::array userActionRules{
    MemberRule{"action_kind", isString, "a string"},
    MemberRule{"action_info", isObject, "an object"},
    MemberRule{"seconds_from_session_start", isNumberOrNull, "a number or null"},
    MemberRule{"session_id", isUUIDOrNull, "an upper-case UUID or null"},
    MemberRule{"process_id", isUUID, uuidForm},
    MemberRule{"last_foreground_session_id", isUUIDOrNull, "an upper-case UUID or null"},
    MemberRule{"is_background_event", isBoolean, "a boolean"}};

constexpr std::array debugEventRules{
    MemberRule{"severity", isSeverity, "Debug, Notice, Warning, Error or Critical"},
    MemberRule{"message", isString, "a string"},
    MemberRule{"category", isString, "a string"},
    MemberRule{"domain", isStringOrNull, "a string or null"},
    MemberRule{"code", isStringOrNull, "a string or null"},
    MemberRule{"type", isStringOrNull, "a string or null"},
    MemberRule{"description", isStringOrNull, "a string or null"},
    MemberRule{"info", isObject, "an object"},
    MemberRule{"file", isString, "a string"},
    MemberRule{"function", isString, "a string"},
    MemberRule{"line", isUnsignedInteger, "an integer, zero or more"}};

std::string_view text(const simdjson::dom::object& object, std::string_view key) {
  std::string_view value;
  return object.at_key(key).get(value) == simdjson::SUCCESS ? value : std::string_view();
}

/// The object under that key, which was checked before.
simdjson::dom::object member(const simdjson::dom::object& object, std::string_view key) {
  return object.at_key(key);
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
  if (auto found = exactly(data, installRules)) return found;
  return halfStorefront(data);
}

std::optional<std::string> sessionViolation(const simdjson::dom::object& data) {
  if (auto found = violation(data, subtypeRules, OtherMembers::allowed, "data")) return found;
  if (text(data, "subtype") == "session_end") {
    return violation(data, sessionEndRules, OtherMembers::allowed, "data");
  }
  if (auto found = exactly(data, sessionStartRules)) return found;
  return halfStorefront(data);
}

std::optional<std::string> dataViolation(std::string_view type, const simdjson::dom::object& data) {
  if (type == "Session") return sessionViolation(data);
  if (type == "ExperimentSegmentReceived") return exactly(data, {});
  if (type == "Install") return installViolation(data);
  if (type == "UserAction") return exactly(data, userActionRules);
  if (type == "UserInfoUpdated") return exactly(data, userInfoUpdatedRules);
  if (type == "DebugEvent") return exactly(data, debugEventRules);
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
