#pragma once

#include "Core/Event/StoredEvent.h"
#include "Core/Event/UserAction.h"

#include <memory>
#include <string>
#include <utility>
#include <variant>

namespace kite {

/// An event on its way to the storage, cheap to hand on. An action, of which there are many,
/// becomes a record only there, off the thread that tracks it.
class TrackedEvent {
 public:
  TrackedEvent(StoredEvent record) : _event(std::make_shared<Event>(std::move(record))) {}
  TrackedEvent(UserAction::Payload payload, Shared<User> user, std::string app)
      : _event(std::make_shared<Event>(std::in_place_type<Action>, std::move(payload),
                                       std::move(user), std::move(app))) {}

  StoredEvent record() const {
    if (const auto* action = std::get_if<Action>(&_event->content))
      return StoredEvent::from(action->action, action->app);
    return std::get<StoredEvent>(_event->content);
  }

 private:
  friend class SpentEvents;

  struct Action {
    Action(UserAction::Payload&& payload, Shared<User>&& user, std::string&& appName)
        : action(std::move(payload), std::move(user)), app(std::move(appName)) {}
    UserAction action;
    std::string app;
  };
  struct Event {
    template <class... Content>
    explicit Event(Content&&... given) : content(std::forward<Content>(given)...) {}

    std::variant<StoredEvent, Action> content;
    std::shared_ptr<Event> spent;  // itself, while it is among the spent ones
    Event* nextSpent = nullptr;
  };

  std::shared_ptr<Event> _event;
};

}  // namespace kite
