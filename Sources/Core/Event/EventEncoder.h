#pragma once

#include <Kite/Base/Result.h>

#include "Core/Event/PendingEvent.h"

#include <optional>
#include <string>

namespace kite {

/// Encodes events one after the other, the user block of each user once. Not for two threads at a
/// time.
class EventEncoder {
 public:
  EventHandle encode(const StoredEvent& event);

 private:
  using UserText = Result<SharedText, EncodingError>;
  struct Encoded {
    std::string app;
    Shared<User> user;
    UserText text;
  };

  const UserText& userText(const StoredEvent& event);

  std::optional<Encoded> _last;
  std::string _scratch;
};

}  // namespace kite
