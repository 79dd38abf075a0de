#include "Collector/Intake.h"

#include "Collector/JSONText.h"

#include <fmt/format.h>

#include <chrono>

namespace kite::tool {
namespace {

Outcome outcome(const ReceivedRequest& request, int status, std::string body) {
  return {
      .reply = {.status = status,
                .headers = {{"Content-Type", "application/json"}},
                .body = std::move(body)},
      .report = {.method = request.method, .path = std::string(request.path()), .status = status}};
}

Outcome accept(const ReceivedRequest& request, double delta, Stored stored) {
  Outcome result = outcome(request, 200,
                           fmt::format(R"({{"delta":{},"last_event_timestamp":{}}})",
                                       realJSON(delta), realJSON(stored.newestTimestamp)));
  result.report.newEvents = stored.newEvents;
  result.report.duplicates = stored.duplicates;
  result.repeated = std::move(stored.repeated);
  return result;
}

Outcome failure(const ReceivedRequest& request, int status, const std::string& message) {
  Outcome result = refuse(request, {.status = status, .code = 0, .message = message});
  result.report.hasStoreFailed = true;
  return result;
}

/// Adds the time of its scope to a sum.
class AddedTime {
 public:
  explicit AddedTime(std::optional<double>& sum) : _sum(sum) {}
  ~AddedTime() {
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - _begin;
    _sum = _sum.value_or(0) + time.count();
  }
  AddedTime(const AddedTime&) = delete;
  AddedTime& operator=(const AddedTime&) = delete;

 private:
  std::optional<double>& _sum;
  std::chrono::steady_clock::time_point _begin = std::chrono::steady_clock::now();
};

Refusal usedBefore() { return replayed("the request id was used before"); }

}  // namespace

Outcome refuse(const ReceivedRequest& request, const Refusal& refusal) {
  Outcome result = outcome(request, refusal.status,
                           fmt::format(R"({{"error_code":{},"message":{}}})", refusal.code,
                                       quotedJSON(refusal.message)));
  result.report.errorCode = refusal.code;
  result.report.message = refusal.message;
  return result;
}

template <class Operation>
auto Intake::timed(const Operation& operation) {
  const AddedTime added(_storeSeconds);
  return operation();
}

Outcome Intake::receive(const ReceivedRequest& request, double now) {
  _storeSeconds.reset();
  Outcome result = tryToReceive(request, now);
  result.report.storeSeconds = _storeSeconds;
  return result;
}

Outcome Intake::tryToReceive(const ReceivedRequest& request, double now) {
  try {
    return checkAndStore(request, now);
  } catch (const StoreAway& error) {
    return failure(request, 503, std::string("the database is away: ") + error.what());
  } catch (const StoreError& error) {
    return failure(request, 500, std::string("the database failed: ") + error.what());
  }
}

Outcome Intake::checkAndStore(const ReceivedRequest& request, double now) {
  const auto sender = authenticate(request, _key, now);
  if (!sender) return refuse(request, sender.error());
  if (timed([&] { return _store->hasSeen(sender->requestID); })) {
    return refuse(request, usedBefore());
  }
  return receive(request, *sender, now);
}

Outcome Intake::receive(const ReceivedRequest& request, const Sender& sender, double now) {
  auto batch = unpack(request, sender);
  if (!batch) {
    timed([&] { _store->remember(sender, batch.error(), now); });
    return refuse(request, batch.error());
  }
  const double delta = now - batch->requestTimestamp;
  const auto unpackedBytes = static_cast<std::int64_t>(batch->textBytes);
  const Accepted accepted{.sender = sender, .batch = *std::move(batch)};
  Stored stored = timed([&] { return _store->store(accepted, now); });
  if (stored.isReplay) return refuse(request, usedBefore());
  Outcome result = accept(request, delta, std::move(stored));
  result.report.unpackedBytes = unpackedBytes;
  return result;
}

}  // namespace kite::tool
