#include "Inspector/API.h"
#include "Inspector/Live.h"
#include "Inspector/RowsJSON.h"

#include "Collector/JSONText.h"

#include <fmt/format.h>
#include <simdjson.h>

namespace kite::tool {
namespace {

std::string orNull(const std::optional<double>& number) {
  return number ? realJSON(*number) : "null";
}

void answerFaults(API& api, const Call& call) {
  answerJSON(call.exchange,
             fmt::format(R"({{"faults":{}}})", faultsJSON(api.inspected.faults->list())));
}

}  // namespace

void summarize(API& api, const Call& call) {
  const Totals totals = api.reader.totals();
  std::string types;
  for (const auto& [type, count] : totals.byType) {
    types += fmt::format("{}{}:{}", types.empty() ? "" : ",", quotedJSON(type), count);
  }
  answerJSON(
      call.exchange,
      fmt::format(R"({{"events":{},"duplicates":{},"requests":{},"refused":{},"clients":{},)"
                  R"("sessions":{},"by_type":{{{}}},"faults":{},"oldest":{},"newest":{},)"
                  R"("last_seq":{},"database":{},"endpoint":{},"ca":{},"version":"{}"}})",
                  totals.events, totals.duplicates, totals.requests, totals.refused, totals.clients,
                  totals.sessions, types, faultsJSON(api.inspected.faults->list()),
                  orNull(totals.oldest), orNull(totals.newest), totals.lastEvent,
                  quotedJSON(api.inspected.database), quotedJSON(api.inspected.endpoint),
                  quotedJSON(api.inspected.ca), KITE_VERSION));
}

void listFaults(API& api, const Call& call) { answerFaults(api, call); }

void addFault(API& api, const Call& call) {
  simdjson::dom::parser parser;
  simdjson::dom::object body;
  std::string_view text;
  if (parser.parse(call.request.body).get(body) != simdjson::SUCCESS || body.size() != 1 ||
      body.at_key("fault").get(text) != simdjson::SUCCESS) {
    throw APIError(400, R"(the body is {"fault":"KIND[:ARG][xN]"})");
  }
  auto fault = parseFault(text);
  if (!fault) throw APIError(400, fault.error());
  if (std::holds_alternative<faults::AnswerFile>(fault->kind)) {
    throw APIError(400, "a file is only answered from the command line");
  }
  api.inspected.faults->add(*std::move(fault));
  api.live.tellSoon();
  answerFaults(api, call);
}

void clearFaults(API& api, const Call& call) {
  api.inspected.faults->clear();
  api.live.tellSoon();
  answerFaults(api, call);
}

}  // namespace kite::tool
