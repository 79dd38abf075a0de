#pragma once

#include "Queue/PendingChange.h"

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <variant>

namespace kite {

/// An event on its way to the storage, cheap to hand on.
class TrackedEvent {
 public:
  TrackedEvent(StoredEvent record) : _change(std::make_unique<PendingChange>(std::move(record))) {}
  TrackedEvent(UserAction::Payload&& payload, const Shared<User>& user, std::string_view app)
      : _change(std::make_unique<PendingChange>(std::in_place_type<TrackedAction>,
                                                std::move(payload), user, app)) {}

  StoredEvent record() const {
    if (const auto* tracked = std::get_if<TrackedAction>(&_change->content))
      return StoredEvent::from(tracked->action, std::string(tracked->app.view()));
    return std::get<StoredEvent>(_change->content);
  }

  std::unique_ptr<PendingChange> asChange() && { return std::move(_change); }

 private:
  std::unique_ptr<PendingChange> _change;
};

}  // namespace kite
