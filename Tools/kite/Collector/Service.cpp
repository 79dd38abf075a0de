#include "Collector/Service.h"

#include "Collector/JSONText.h"

#include <fmt/format.h>

#include <fstream>
#include <iterator>

namespace kite::tool {
namespace {

Outcome plain(const ReceivedRequest& request, int status, std::string body) {
  return {
      .reply = {.status = status, .headers = {}, .body = std::move(body)},
      .report = {.method = request.method, .path = std::string(request.path()), .status = status}};
}

Outcome health(const ReceivedRequest& request) {
  Outcome outcome = plain(request, 200, R"({"status":"ok"})");
  outcome.reply.headers.push_back({"Content-Type", "application/json"});
  return outcome;
}

Outcome unknownPath(const ReceivedRequest& request) {
  return refuse(request, {.status = 404, .code = 0, .message = "there is nothing at this path"});
}

Outcome wrongMethod(const ReceivedRequest& request, std::string allowed) {
  Outcome outcome =
      refuse(request, {.status = 405, .code = 0, .message = "this path wants " + allowed});
  outcome.reply.headers.push_back({"Allow", std::move(allowed)});
  return outcome;
}

/// What a fault answers in the place of the service; nothing for a reset.
struct FaultyAnswer {
  const ReceivedRequest& request;

  std::optional<Outcome> operator()(const faults::AnswerStatus& fault) const {
    if (fault.status < 400) return plain(request, fault.status, "");
    return refuse(request, {.status = fault.status, .code = 0, .message = "fault"});
  }
  std::optional<Outcome> operator()(const faults::AnswerFile& fault) const {
    std::ifstream file(fault.path, std::ios::binary);
    if (!file) {
      return refuse(request, {.status = 500, .code = 0, .message = "cannot read the fault's file"});
    }
    return plain(request, 200, {std::istreambuf_iterator<char>(file), {}});
  }
  std::optional<Outcome> operator()(const faults::Redirect& fault) const {
    Outcome outcome = plain(request, 307, "");
    outcome.reply.headers.push_back({"Location", fault.url});
    return outcome;
  }
  std::optional<Outcome> operator()(const faults::Truncate&) const {
    Outcome outcome = plain(request, 200, R"({"delta":0.0,"last_event_timestamp":0.0})");
    outcome.reply.isTruncated = true;
    return outcome;
  }
  std::optional<Outcome> operator()(const faults::Reset&) const { return std::nullopt; }
  std::optional<Outcome> operator()(const faults::Delay&) const { return std::nullopt; }
};

/// What is kept of a header is short: nobody has signed for it yet.
constexpr std::size_t longestHeader = 1024;
constexpr std::size_t longestPath = 2048;

std::string headersJSON(const ReceivedRequest& request) {
  std::string json = "[";
  for (const Header& header : request.headers) {
    json += fmt::format("{}[{},{}]", json.size() > 1 ? "," : "",
                        quotedJSON(clipped(header.name, longestHeader)),
                        quotedJSON(clipped(header.value, longestHeader)));
  }
  return json + "]";
}

std::optional<std::string> headerOf(const ReceivedRequest& request, std::string_view name) {
  const auto value = request.header(name);
  return value.empty() ? std::nullopt : std::optional(clipped(value, longestHeader));
}

RequestRecord recordOf(const Arrived& arrived, const RequestReport& report, std::int64_t attempt) {
  const ReceivedRequest& request = arrived.request;
  return {.receivedAt = arrived.receivedAt,
          .method = report.method,
          .path = clipped(report.path, longestPath),
          .endpoint = clipped(fmt::format("https://{}{}", request.header("Host"), request.target),
                              longestPath),
          .status = report.status,
          .errorCode = report.errorCode,
          .message = report.message,
          .fault = report.fault,
          .bytes = static_cast<std::int64_t>(report.bytes),
          .unpackedBytes = report.unpackedBytes,
          .newEvents = static_cast<std::int64_t>(report.newEvents),
          .duplicates = static_cast<std::int64_t>(report.duplicates),
          .duration = report.seconds,
          .attempt = attempt,
          .client = headerOf(request, "Kite-Client-ID"),
          .requestID = headerOf(request, "Wicket-Request-Id"),
          .headers = headersJSON(request)};
}

}  // namespace

Service::Service(ServiceOptions options)
    : _intake(std::move(options.key), std::move(options.store)),
      _clock(std::move(options.clock)),
      _report(std::move(options.report)),
      _changed(std::move(options.changed)) {}

void Service::handle(ReceivedRequest request, Exchange& exchange) {
  Arrived arrived{.request = std::move(request),
                  .receivedAt = _clock(),
                  .begin = std::chrono::steady_clock::now()};
  const ReceivedRequest& it = arrived.request;
  if (it.path() == healthPath) {
    return answer(arrived, it.method == "GET" ? health(it) : wrongMethod(it, "GET"), exchange);
  }
  if (it.path() != eventsPath) return answer(arrived, unknownPath(it), exchange);
  if (it.method != "POST") return answer(arrived, wrongMethod(it, "POST"), exchange);
  if (const auto fault = _faults.take()) return strike(*fault, std::move(arrived), exchange);
  takeIn(arrived, std::nullopt, exchange);
}

void Service::strike(const Fault& fault, Arrived arrived, Exchange& exchange) {
  if (const auto* delay = std::get_if<faults::Delay>(&fault.kind)) {
    return exchange.later(delay->time, [service = weak_from_this(), arrived = std::move(arrived),
                                        text = fault.text](Exchange& waiting) {
      if (const auto self = service.lock()) self->takeIn(arrived, text, waiting);
    });
  }
  const ReceivedRequest& request = arrived.request;
  auto outcome = std::visit(FaultyAnswer{request}, fault.kind);
  RequestReport report =
      outcome ? outcome->report
              : RequestReport{.method = request.method, .path = std::string(request.path())};
  report.fault = fault.text;
  tell(arrived, report, {});
  outcome ? exchange.answer(outcome->reply) : exchange.reset();
}

void Service::takeIn(const Arrived& arrived, std::optional<std::string> fault, Exchange& exchange) {
  Outcome outcome = _intake.receive(arrived.request, _clock());
  outcome.report.fault = std::move(fault);
  answer(arrived, std::move(outcome), exchange);
}

void Service::answer(const Arrived& arrived, Outcome outcome, Exchange& exchange) {
  tell(arrived, outcome.report, std::move(outcome.repeated));
  exchange.answer(outcome.reply);
}

void Service::tell(const Arrived& arrived, RequestReport report,
                   std::vector<RepeatedEvent> repeated) {
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - arrived.begin;
  report.seconds = time.count();
  report.bytes = arrived.request.body.size();
  _metrics.note(report);
  if (!isHealthCheck(report)) {
    record(arrived, report);
    if (_changed) _changed(std::move(repeated));
  }
  if (_report) _report(report);
}

void Service::record(const Arrived& arrived, const RequestReport& report) {
  const bool isRefused = report.errorCode && !report.fault;
  const std::int64_t attempt = _attempts.note(arrived.request, report);
  try {
    _intake.store().record(recordOf(arrived, report, attempt),
                           isRefused ? std::string_view(arrived.request.body) : "");
  } catch (const StoreError&) {  // the answer counts, not what is kept of it
    _metrics.noteUnrecorded();
  }
}

}  // namespace kite::tool
