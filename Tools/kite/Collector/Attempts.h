#pragma once

#include "Collector/RequestReport.h"
#include "Collector/Server/ReceivedRequest.h"

#include <cstdint>
#include <mutex>
#include <string>
#include <unordered_map>

namespace kite::tool {

/// Counts a client's tries: the first one is 1, and so is the one that follows an accepted one. May
/// be called from any thread.
class Attempts {
 public:
  /// How many tries this one is.
  std::int64_t note(const ReceivedRequest& request, const RequestReport& report);

 private:
  std::mutex _mutex;
  std::unordered_map<std::string, std::int64_t> _failures;  // guarded by _mutex
};

}  // namespace kite::tool
