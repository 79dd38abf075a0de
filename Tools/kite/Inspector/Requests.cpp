#include "Inspector/API.h"
#include "Inspector/Access.h"
#include "Inspector/Explanation.h"
#include "Inspector/Page.h"
#include "Inspector/RowsJSON.h"

#include "Collector/Checks/Gunzip.h"

#include <fmt/format.h>

namespace kite::tool {
namespace {

RequestRecord askedRequest(API& api, const Call& call) {
  const auto seq = wholeNumber(call.id);
  auto request = seq ? api.reader.request(*seq) : std::nullopt;
  if (!request) throw APIError(404, "there is no such request");
  return *std::move(request);
}

}  // namespace

void listRequests(API& api, const Call& call) {
  const bool isRising = call.target.members.contains("after");
  const auto page = std::make_shared<Page>(call, api.reader.requests(),
                                           isRising ? Order::oldestFirst : Order::newestFirst);
  answerPage(call.exchange, "requests", page, [&reader = api.reader](SeqRange slice, Page& filled) {
    reader.scanRequests(slice, filled.slices().order(), [&filled](const RequestRecord& request) {
      return filled.offer(request, requestJSON);
    });
  });
}

void showRequest(API& api, const Call& call) {
  const RequestRecord request = askedRequest(api, call);
  const auto body = api.reader.refusedBody(request.seq);
  std::string json = requestJSON(request);
  json.back() = ',';  // its members go on
  answerJSON(call.exchange, json + explanationMembers(request, body, api.inspected.key) + "}");
}

void showBody(API& api, const Call& call) {
  const auto body = api.reader.refusedBody(askedRequest(api, call).seq);
  if (!body) throw APIError(404, "the body is not kept");
  Reply reply{.status = 200, .headers = {{"Content-Type", "application/gzip"}}, .body = *body};
  if (call.target.member("unpacked") == "1") {
    const auto text = gunzip(*body, largestText);
    if (!text) throw APIError(422, "the body: " + text.error());
    reply.headers = {{"Content-Type", "text/plain; charset=utf-8"}};
    reply.body = *text;
  }
  reply.headers.push_back(
      {"Content-Disposition", fmt::format("attachment; filename=\"request-{}\"", call.id)});
  addSecurityHeaders(reply);
  call.exchange.answer(reply);
}

}  // namespace kite::tool
