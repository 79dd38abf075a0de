#pragma once

#include <Kite/Base/UUID.h>
#include <Kite/KiteData.h>
#include <Kite/Platform/Usher.h>
#include <Kite/Severity.h>
#include <Kite/Storefront.h>

#include "Base/ShortText.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

/// The kinds of events: what is tracked of each, and the keys under which its data holds it.
///
/// `describe(members, event)` tells `members` the keys of an event's data, in the order in which
/// they are written: `members(key, value)` for a member that is always there, null when an optional
/// value is absent, and `members.ifPresent(key, value)` for one that is left out then.
namespace kite {

struct InstallPayload {
  UUID id;
  double timestamp;
  bool installedBeforeKite;
  Usher::CreationType keychainStatus;
  Usher::CreationType userdefaultStatus;
  std::optional<std::string> oldBundleVersion;
  std::optional<std::string> oldAppVersion;
  std::string newAppVersion;
  std::optional<double> documentDirectoryCreationTimestamp;  ///< seconds since 1970

  friend bool operator==(const InstallPayload&, const InstallPayload&) = default;
};

/// Its data holds the storefront's entries, too, as a session's does.
struct InstallEvent {
  InstallPayload payload;
  std::optional<Storefront> storefront;
};

struct SessionStartPayload {
  UUID id;                  ///< the session's
  double sessionStartDate;  ///< seconds since 1970

  friend bool operator==(const SessionStartPayload&, const SessionStartPayload&) = default;
};

/// Its data holds the session's own, too. An entry of the same name that the library makes wins.
struct SessionEndPayload {
  UUID sessionStartId;
  bool crashed;
  double duration;  ///< seconds, -1.0 when unknown
  JSONValue::Object sessionData;
  UUID id;
  double sessionEndTimestamp;  ///< seconds since 1970

  friend bool operator==(const SessionEndPayload&, const SessionEndPayload&) = default;
};

/// A session's start or its end.
using SessionSubtype = std::variant<SessionStartPayload, SessionEndPayload>;

struct SessionEvent {
  SessionSubtype subtype;
  std::optional<Storefront> storefront;
};

namespace UserInfoUpdated {
struct Payload {
  JSONValue::Object oldUserInfo;
  JSONValue::Object newUserInfo;
  std::vector<std::string> updatedKeys;
  std::vector<std::string> lostKeys;
  UUID id;
  double timestamp;

  friend bool operator==(const Payload&, const Payload&) = default;
};
}  // namespace UserInfoUpdated

namespace UserAction {
struct Payload {
  UUID id;
  double timestamp;
  ShortText actionKind;
  KiteData actionInfo;
  std::optional<double> secondsFromSessionStart;
  std::optional<UUID> sessionId;
  UUID processId;
  std::optional<UUID> lastForegroundSessionId;
  bool isBackgroundEvent;

  friend bool operator==(const Payload&, const Payload&) = default;
};
}  // namespace UserAction

/// A row of a table of the host's. Its data is the host's alone.
struct CustomEvent {
  struct Payload {
    JSONValue::Object data;
    UUID id;
    double timestamp;

    friend bool operator==(const Payload&, const Payload&) = default;
  };

  std::string tableName;
  Payload payload;
};

namespace DebugEvent {
struct Payload {
  UUID id;
  double timestamp;
  Severity severity;
  std::string message;
  std::string category;
  std::optional<std::string> domain;
  std::optional<std::string> code;
  std::optional<std::string> type;
  std::optional<std::string> description;
  JSONValue::Object info;
  std::string file;
  std::string function;
  std::uint64_t line;

  friend bool operator==(const Payload&, const Payload&) = default;
};
}  // namespace DebugEvent

/// Has no data.
struct ExperimentSegmentsReceived {
  UUID id;
  double timestamp;
};

template <class Members>
void describe(Members& members, const InstallPayload& payload) {
  members("document_directory_creation_timestamp", payload.documentDirectoryCreationTimestamp);
  members("installed_before_kite", payload.installedBeforeKite);
  members("keychain_id_status", payload.keychainStatus);
  members("new_app_version", payload.newAppVersion);
  members.ifPresent("old_app_version", payload.oldAppVersion);
  members.ifPresent("old_bundle_version", payload.oldBundleVersion);
  members("userdefault_id_status", payload.userdefaultStatus);
}

template <class Members>
void describe(Members& members, const Storefront& storefront) {
  members("storefront_country_code", storefront.countryCode);
  members("storefront_id", storefront.identifier);
}

template <class Members>
void describe(Members& members, const SessionStartPayload&) {
  members("subtype", std::string_view("session_start"));
}

template <class Members>
void describe(Members& members, const SessionEndPayload& payload) {
  members("crashed", payload.crashed);
  members("duration", payload.duration);
  members("session_start_id", payload.sessionStartId);
  members("subtype", std::string_view("session_end"));
}

template <class Members>
void describe(Members& members, const UserInfoUpdated::Payload& payload) {
  members("lost_keys", payload.lostKeys);
  members("new_user_info", payload.newUserInfo);
  members("old_user_info", payload.oldUserInfo);
  members("updated_keys", payload.updatedKeys);
}

template <class Members>
void describe(Members& members, const UserAction::Payload& payload) {
  members("action_info", payload.actionInfo);
  members("action_kind", payload.actionKind);
  members("is_background_event", payload.isBackgroundEvent);
  members("last_foreground_session_id", payload.lastForegroundSessionId);
  members("process_id", payload.processId);
  members("seconds_from_session_start", payload.secondsFromSessionStart);
  members("session_id", payload.sessionId);
}

template <class Members>
void describe(Members& members, const DebugEvent::Payload& payload) {
  members("category", payload.category);
  members("code", payload.code);
  members("description", payload.description);
  members("domain", payload.domain);
  members("file", payload.file);
  members("function", payload.function);
  members("info", payload.info);
  members("line", payload.line);
  members("message", payload.message);
  members("severity", payload.severity);
  members("type", payload.type);
}

template <class Members>
void describe(Members&, const ExperimentSegmentsReceived&) {}

}  // namespace kite
