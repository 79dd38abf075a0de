#pragma once

#include <Kite/Base/Result.h>

#include "Events/EncodedEvent.h"
#include "Events/TrackedEvent.h"

#include <optional>
#include <string>
#include <string_view>

namespace kite {

/// Encodes events one after the other, the user block of each user once. Not for two threads at a
/// time.
class EventEncoder {
 public:
  EventHandle encode(const StoredEvent& event);
  /// What the event's record encodes to, without a record being made of it.
  EventHandle encode(const TrackedEvent& event);

 private:
  using UserText = Result<SharedText, EncodingError>;
  struct Encoded {
    std::string app;
    Shared<User> user;
    UserText text;
  };

  /// The event, unless some part of it has no text. `writeData(writer)` writes its data.
  template <class WriteData>
  Result<EventHandle, EncodingError> encode(const EventText::Head& head, std::string_view app,
                                            const Shared<User>& user, WriteData writeData);
  const UserText& userText(std::string_view app, const Shared<User>& user);

  std::optional<Encoded> _last;
  std::string _scratch;
};

}  // namespace kite
