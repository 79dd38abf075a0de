#pragma once

#include "Collector/Checks/Batch.h"
#include "Collector/Checks/Credentials.h"

namespace kite::tool {

inline constexpr std::size_t largestBody = 16 * 1024 * 1024;  // compressed bytes
inline constexpr std::size_t largestText = 64 * 1024 * 1024;  // bytes of JSON

/// Unpacks and checks the body of an authenticated request.
Result<Batch, Refusal> unpack(const ReceivedRequest& request, const Sender& sender);

/// A request that is in order.
struct Accepted {
  Sender sender;
  Batch batch;
};
using Verdict = Result<Accepted, Refusal>;

/// The whole check of one upload, but for whether its request id was seen before. `now` is in
/// seconds since 1970.
Verdict check(const ReceivedRequest& request, std::string_view key, double now);

}  // namespace kite::tool
