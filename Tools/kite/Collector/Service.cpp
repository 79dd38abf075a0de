#include "Collector/Service.h"

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

}  // namespace

Service::Service(ServiceOptions options)
    : _intake(std::move(options.key), std::move(options.database)),
      _clock(std::move(options.clock)),
      _report(std::move(options.report)) {}

void Service::handle(ReceivedRequest request, Exchange& exchange) {
  if (request.path() == healthPath) {
    return answer(request.method == "GET" ? health(request) : wrongMethod(request, "GET"),
                  exchange);
  }
  if (request.path() != eventsPath) return answer(unknownPath(request), exchange);
  if (request.method != "POST") return answer(wrongMethod(request, "POST"), exchange);
  if (const auto fault = _faults.take()) return strike(*fault, std::move(request), exchange);
  takeIn(request, std::nullopt, exchange);
}

void Service::strike(const Fault& fault, ReceivedRequest request, Exchange& exchange) {
  if (const auto* delay = std::get_if<faults::Delay>(&fault.kind)) {
    return exchange.later(delay->time, [service = weak_from_this(), request = std::move(request),
                                        text = fault.text](Exchange& waiting) {
      if (const auto self = service.lock()) self->takeIn(request, text, waiting);
    });
  }
  auto outcome = std::visit(FaultyAnswer{request}, fault.kind);
  RequestReport report =
      outcome ? outcome->report
              : RequestReport{.method = request.method, .path = std::string(request.path())};
  report.fault = fault.text;
  tell(report);
  outcome ? exchange.answer(outcome->reply) : exchange.reset();
}

void Service::takeIn(const ReceivedRequest& request, std::optional<std::string> fault,
                     Exchange& exchange) {
  Outcome outcome = _intake.receive(request, _clock());
  outcome.report.fault = std::move(fault);
  answer(outcome, exchange);
}

void Service::answer(const Outcome& outcome, Exchange& exchange) {
  tell(outcome.report);
  exchange.answer(outcome.reply);
}

void Service::tell(const RequestReport& report) {
  count(report);
  if (_report) _report(report);
}

void Service::count(const RequestReport& report) {
  const std::scoped_lock lock(_mutex);
  ++_statistics.requests;
  if (report.newEvents + report.duplicates > 0) ++_statistics.accepted;
  if (report.fault) ++_statistics.faults;
  if (report.errorCode && !report.fault) ++_statistics.refused;
  _statistics.newEvents += report.newEvents;
  _statistics.duplicates += report.duplicates;
}

CollectorStatistics Service::statistics() const {
  const std::scoped_lock lock(_mutex);
  return _statistics;
}

}  // namespace kite::tool
