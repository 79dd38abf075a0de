#pragma once

#include "Events/EventKinds.h"
#include "Events/StoredEvent.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <variant>

namespace kite {

class JSONWriter;

/// What all events between two changes of the profile have in common.
struct EventOrigin {
  std::string app;
  Shared<User> user;
};

/// An event as the caller left it: encoded by the storage's thread, and made into a record only
/// where one is wanted.
class TrackedEvent {
 public:
  /// Stops the process over a custom event with a reserved name and a line without a JSON form.
  template <class Kind>
  TrackedEvent(Kind&& kind, std::shared_ptr<const EventOrigin> origin)
      : _kind(std::forward<Kind>(kind)), _origin(std::move(origin)) {
    requireText();
  }

  EventType type() const;
  std::string id() const;
  double timestamp() const;
  std::optional<double> requestTimestamp() const { return std::nullopt; }
  const std::string& app() const { return _origin->app; }
  const Shared<User>& user() const { return _origin->user; }
  JSONValue::Object data() const;
  /// Writes the text of `data()`.
  void writeData(JSONWriter& writer) const;

  StoredEvent record() const { return StoredEvent::from(*this, app()); }

 private:
  void requireText() const;

  std::variant<InstallEvent, SessionEvent, UserInfoUpdated::Payload, UserAction::Payload,
               CustomEvent, DebugEvent::Payload, ExperimentSegmentsReceived>
      _kind;
  std::shared_ptr<const EventOrigin> _origin;
};

static_assert(KiteEvent<TrackedEvent>);

}  // namespace kite
