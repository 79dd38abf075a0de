#pragma once

#include "Base/ShortText.h"
#include "Events/StoredEvent.h"
#include "Events/UserAction.h"

#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace kite {

/// An action becomes a record only where one is wanted: there are many.
struct TrackedAction {
  TrackedAction(UserAction::Payload&& payload, const Shared<User>& user, std::string_view appName)
      : action(std::move(payload), user), app(appName) {}

  UserAction action;
  ShortText app;
};

/// What the pending events wait for: an event to append, or identifiers whose events are to go.
struct PendingChange {
  using Removal = std::set<std::string>;

  template <class... Content>
  explicit PendingChange(Content&&... given) : content(std::forward<Content>(given)...) {}

  std::variant<StoredEvent, TrackedAction, Removal> content;
  PendingChange* next = nullptr;
};

}  // namespace kite
