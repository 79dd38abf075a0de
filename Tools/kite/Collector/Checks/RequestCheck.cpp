#include "Collector/Checks/RequestCheck.h"

#include "Collector/Checks/Gunzip.h"

#include <fmt/format.h>

namespace kite::tool {

Result<Batch, Refusal> unpack(const ReceivedRequest& request, const Sender& sender) {
  if (request.body.size() > largestBody) {
    return Failure{invalidFormat(fmt::format("the body has more than {} bytes", largestBody))};
  }
  auto json = gunzip(request.body, largestText);
  if (!json) return Failure{invalidFormat("the body: " + json.error())};
  return readBatch(*std::move(json), sender.app);
}

Verdict check(const ReceivedRequest& request, std::string_view key, double now) {
  auto sender = authenticate(request, key, now);
  if (!sender) return Failure{sender.error()};
  auto batch = unpack(request, *sender);
  if (!batch) return Failure{batch.error()};
  return Accepted{*std::move(sender), *std::move(batch)};
}

}  // namespace kite::tool
