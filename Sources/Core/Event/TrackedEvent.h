#pragma once

#include "Core/Event/StoredEvent.h"
#include "Core/Event/UserAction.h"

#include <string>
#include <utility>
#include <variant>

namespace kite {

/// An event on its way to the storage. An action, of which there are many, becomes a record only
/// there, off the thread that tracks it.
class TrackedEvent {
 public:
  TrackedEvent(StoredEvent record) : _event(std::move(record)) {}
  TrackedEvent(UserAction action, std::string app)
      : _event(Action{std::move(action), std::move(app)}) {}

  StoredEvent record() && {
    if (auto* record = std::get_if<StoredEvent>(&_event)) return std::move(*record);
    auto& [action, app] = std::get<Action>(_event);
    return StoredEvent::from(action, std::move(app));
  }

 private:
  struct Action {
    UserAction action;
    std::string app;
  };

  std::variant<StoredEvent, Action> _event;
};

}  // namespace kite
