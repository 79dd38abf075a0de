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

Outcome busy(const ReceivedRequest& request) {
  return refuse(request, {.status = 503, .code = 0, .message = "the collector has too much to do"});
}

/// What a fault answers in the place of the service.
struct FaultyAnswer {
  const ReceivedRequest& request;

  Outcome operator()(const faults::AnswerStatus& fault) const {
    if (fault.status < 400) return plain(request, fault.status, "");
    return refuse(request, {.status = fault.status, .code = 0, .message = "fault"});
  }
  Outcome operator()(const faults::AnswerFile& fault) const {
    std::ifstream file(fault.path, std::ios::binary);
    if (!file) {
      return refuse(request, {.status = 500, .code = 0, .message = "cannot read the fault's file"});
    }
    return plain(request, 200, {std::istreambuf_iterator<char>(file), {}});
  }
  Outcome operator()(const faults::Redirect& fault) const {
    Outcome outcome = plain(request, 307, "");
    outcome.reply.headers.push_back({"Location", fault.url});
    return outcome;
  }
  Outcome operator()(const faults::Truncate&) const {
    Outcome outcome = plain(request, 200, R"({"delta":0.0,"last_event_timestamp":0.0})");
    outcome.reply.isTruncated = true;
    return outcome;
  }
  Outcome operator()(const faults::Reset&) const { return plain(request, 0, ""); }
  Outcome operator()(const faults::Delay&) const { return plain(request, 0, ""); }
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

std::unique_ptr<Workers> makeWorkers(ServiceOptions& options) {
  if (options.pool.empty()) {
    return std::make_unique<Workers>(Intake(options.key, std::move(options.store)));
  }
  std::vector<Intake> intakes;
  for (auto& store : options.pool) intakes.emplace_back(options.key, std::move(store));
  return std::make_unique<Workers>(std::move(intakes), options.bound, std::move(options.wake));
}

void measure(const Arrived& arrived, RequestReport& report) {
  const std::chrono::duration<double> time = std::chrono::steady_clock::now() - arrived.begin;
  report.seconds = time.count();
  report.bytes = arrived.request.body.size();
}

/// Is held by an exchange, so that it goes with it.
struct Ticket {
  Exchange& exchange;
};

}  // namespace

Service::Service(ServiceOptions options)
    : _clock(std::move(options.clock)),
      _report(std::move(options.report)),
      _changed(std::move(options.changed)),
      _longestWait(options.longestWait),
      _workers(makeWorkers(options)) {}

void Service::handle(ReceivedRequest request, Exchange& exchange) {
  const auto arrived =
      std::make_shared<const Arrived>(Arrived{.request = std::move(request),
                                              .receivedAt = _clock(),
                                              .begin = std::chrono::steady_clock::now()});
  const ReceivedRequest& it = arrived->request;
  if (it.path() == healthPath) {
    if (it.method != "GET") return answer(arrived, wrongMethod(it, "GET"), exchange);
    return conclude(*arrived, health(it), &exchange);  // whoever is at work
  }
  if (it.path() != eventsPath) return answer(arrived, unknownPath(it), exchange);
  if (it.method != "POST") return answer(arrived, wrongMethod(it, "POST"), exchange);
  if (const auto fault = _faults.take()) return strike(*fault, arrived, exchange);
  takeIn(arrived, std::nullopt, exchange);
}

void Service::strike(const Fault& fault, const Arrival& arrived, Exchange& exchange) {
  if (const auto* delay = std::get_if<faults::Delay>(&fault.kind)) {
    return exchange.later(
        delay->time, [service = weak_from_this(), arrived, text = fault.text](Exchange& waiting) {
          if (const auto self = service.lock()) self->takeIn(arrived, text, waiting);
        });
  }
  Outcome outcome = std::visit(FaultyAnswer{arrived->request}, fault.kind);
  outcome.report.fault = fault.text;
  answer(arrived, std::move(outcome), exchange);
}

void Service::takeIn(const Arrival& arrived, const std::optional<std::string>& fault,
                     Exchange& exchange) {
  work(
      arrived,
      [this, arrived, fault](Intake* intake) {
        const ReceivedRequest& request = arrived->request;
        Outcome outcome = intake ? intake->receive(request, _clock()) : busy(request);
        outcome.report.fault = fault;
        return outcome;
      },
      exchange);
}

void Service::answer(const Arrival& arrived, Outcome outcome, Exchange& exchange) {
  work(
      arrived, [outcome = std::move(outcome)](Intake*) { return outcome; }, exchange);
}

void Service::work(const Arrival& arrived, const Take& take, Exchange& exchange) {
  const auto ticket = std::make_shared<Ticket>(Ticket{exchange});
  exchange.hold(ticket);
  auto job = [this, arrived, take, waiting = std::weak_ptr(ticket),
              begin = std::chrono::steady_clock::now()](Intake& intake) -> Workers::Rest {
    const bool isLate = std::chrono::steady_clock::now() - begin > _longestWait;
    const auto outcome =
        std::make_shared<Outcome>(isLate ? take(nullptr) : takeAndRecord(*arrived, take, intake));
    return [this, arrived, waiting, outcome] {
      const auto held = waiting.lock();
      conclude(*arrived, std::move(*outcome), held ? &held->exchange : nullptr);
    };
  };
  if (!_workers->add(arrived->request.body.size(), std::move(job))) {
    conclude(*arrived, take(nullptr), &exchange);
  }
}

Outcome Service::takeAndRecord(const Arrived& arrived, const Take& take, Intake& intake) {
  intake.store().startRequest();
  Outcome outcome = take(&intake);
  RequestReport& report = outcome.report;
  measure(arrived, report);
  const bool isRefused = report.errorCode && !report.fault;
  const std::int64_t attempt = _attempts.note(arrived.request, report);
  try {
    intake.store().record(recordOf(arrived, report, attempt),
                          isRefused ? std::string_view(arrived.request.body) : "");
  } catch (const StoreError&) {  // the answer counts, not what is kept of it
    _metrics.noteUnrecorded();
  }
  return outcome;
}

void Service::conclude(const Arrived& arrived, Outcome outcome, Exchange* exchange) {
  RequestReport& report = outcome.report;
  measure(arrived, report);
  _metrics.note(report);
  if (_changed && !isHealthCheck(report)) _changed(std::move(outcome.repeated));
  if (_report) _report(report);
  if (!exchange) return;
  outcome.reply.status == 0 ? exchange->reset() : exchange->answer(outcome.reply);
}

}  // namespace kite::tool
