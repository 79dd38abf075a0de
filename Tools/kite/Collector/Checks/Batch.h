#pragma once

#include <Kite/Base/Result.h>

#include "Collector/Checks/Refusal.h"
#include "Collector/EventFacts.h"

#include <string>
#include <string_view>
#include <vector>

namespace kite::tool {

/// One accepted event. The three objects are the JSON text as it was received.
struct ReceivedEvent {
  std::string id;
  std::string type;
  double timestamp;  ///< seconds since 1970
  std::string userInfo;
  std::string userIDs;
  std::string data;
  EventFacts facts = {};  ///< that `data` tells
};

/// The events of one request; at least one.
struct Batch {
  double requestTimestamp;  ///< seconds since 1970, that of every event
  std::vector<ReceivedEvent> events;
  std::size_t textBytes = 0;  ///< of the unpacked body
};

/// Reads an unpacked body that `app` sent. One bad event refuses the whole batch.
Result<Batch, Refusal> readBatch(std::string json, std::string_view app);

}  // namespace kite::tool
