#include "Collector/Checks/Gunzip.h"
#include "Collector/Checks/RequestCheck.h"
#include "Collector/Checks/Signature.h"
#include "Collector/Checks/UUIDText.h"

#include <simdjson.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

using namespace kite::tool;

namespace {

constexpr std::string_view key = "secret";
constexpr std::string_view app = "trail-maps";
constexpr double now = 1765432200;

void require(bool condition) {
  if (!condition) std::abort();
}

void expectObject(const std::string& json) {
  simdjson::dom::parser parser;
  simdjson::dom::object object;
  require(parser.parse(json).get(object) == simdjson::SUCCESS);
  require(json.front() == '{' && json.back() == '}');
}

void expectSound(const Batch& batch) {
  require(!batch.events.empty());
  for (const ReceivedEvent& event : batch.events) {
    require(isUpperCaseUUID(event.id) && !event.type.empty());
    expectObject(event.userInfo);
    expectObject(event.userIDs);
    expectObject(event.data);
  }
}

void expectSound(const Refusal& refusal) {
  require(refusal.status == (refusal.code < 600 ? 422 : 400));
  require(!refusal.message.empty() && refusal.message.size() < 1000);
  require(simdjson::validate_utf8(refusal.message));
}

/// Lines of `Name: value` up to an empty one, then the body.
ReceivedRequest parsed(std::string_view input) {
  ReceivedRequest request{.method = "POST", .target = "/v4/events", .headers = {}, .body = ""};
  while (!input.empty()) {
    const std::string_view line = input.substr(0, input.find('\n'));
    input.remove_prefix(std::min(line.size() + 1, input.size()));
    if (line.empty()) break;
    const auto colon = line.find(": ");
    if (colon == std::string_view::npos) continue;
    request.headers.push_back(
        {std::string(line.substr(0, colon)), std::string(line.substr(colon + 2))});
  }
  request.body = input;
  return request;
}

void sign(ReceivedRequest& request) {
  const auto signature = signatureOf({.host = request.header("Host"),
                                      .target = request.target,
                                      .body = request.body,
                                      .timestamp = request.header("Wicket-Timestamp"),
                                      .requestID = request.header("Wicket-Request-Id")},
                                     request.header("Wicket-Protocol"), key);
  if (signature) request.headers.push_back({"Wicket-Signature", *signature});
}

}  // namespace

/// Any bytes as a request, as a signed request, as a packed body and as a body: each is refused
/// with a reason, or all that is taken from it is sound.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  ReceivedRequest request = parsed({reinterpret_cast<const char*>(bytes), size});
  const Verdict unsignedVerdict = check(request, key, now);
  if (!unsignedVerdict) expectSound(unsignedVerdict.error());
  sign(request);
  const Verdict verdict = check(request, key, now);
  verdict ? expectSound(verdict->batch) : expectSound(verdict.error());

  const auto unpacked = gunzip(request.body, 1024 * 1024);
  const auto batch = readBatch(unpacked ? *unpacked : request.body, app);
  batch ? expectSound(*batch) : expectSound(batch.error());
  return 0;
}
