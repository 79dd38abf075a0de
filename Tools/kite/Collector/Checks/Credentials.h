#pragma once

#include <Kite/Base/Result.h>

#include "Collector/Checks/Refusal.h"
#include "Collector/Server/ReceivedRequest.h"

#include <string>
#include <string_view>

namespace kite::tool {

/// How far a request's timestamp may be from the collector's clock, either way.
inline constexpr double allowedSkew = 600;  // seconds

/// Who sent a request, proven by its signature.
struct Sender {
  std::string requestID;
  std::string app;  ///< Lumo-Id
  std::string clientID;
  bool isTester;
};

/// Checks the headers, the signature over the received bytes and the timestamp, in this order.
/// `now` is in seconds since 1970.
Result<Sender, Refusal> authenticate(const ReceivedRequest& request, std::string_view key,
                                     double now);

}  // namespace kite::tool
