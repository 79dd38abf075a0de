#include "Inspector/Inspector.h"

#include "Inspector/PageFiles.h"

#include <fmt/format.h>

namespace kite::tool {
namespace {

constexpr std::chrono::seconds patienceWithReaders(10);

void answerWith(Exchange& exchange, Reply reply) {
  addSecurityHeaders(reply);
  exchange.answer(reply);
}

void answerFile(const ReceivedRequest& request, const Target& target, Exchange& exchange) {
  const auto file = pageFile(target.path == "/" ? "/index.html" : target.path);
  if (!file) throw APIError(404, "there is nothing at this path");
  if (request.method != "GET") throw APIError(405, "this path wants GET");
  answerWith(exchange, {.status = 200,
                        .headers = {{"Content-Type", std::string(file->contentType)}},
                        .body = std::string(file->bytes)});
}

}  // namespace

Inspector::Inspector(InspectorOptions options, std::unique_ptr<EventReader> reader)
    : _options(std::move(options)), _reader(std::move(reader)) {}

Result<std::unique_ptr<Inspector>, std::string> Inspector::listen(InspectorOptions options) {
  auto reader = openReader(options.inspected.database);
  if (!reader) return Failure{reader.error()};
  std::unique_ptr<Inspector> inspector(new Inspector(std::move(options), *std::move(reader)));
  const auto& given = inspector->_options;
  auto server = HTTPServer::listen(
      {.host = given.host,
       .port = given.port,
       .certificate = std::nullopt,
       .handle = [self = inspector.get()](const ReceivedRequest& request,
                                          Exchange& exchange) { self->handle(request, exchange); },
       .largestBody = largestBody,
       .patience = patienceWithReaders,
       .mostConnections = mostConnections});
  if (!server) return Failure{server.error()};
  inspector->_server = *std::move(server);
  HTTPServer& running = *inspector->_server;
  inspector->_access = std::make_unique<Access>(given.host, running.port(), given.token);
  inspector->_live = std::make_unique<Live>(running, *inspector->_reader, given.inspected);
  running.onWake([live = inspector->_live.get()] { live->tellSoon(); });
  return inspector;
}

std::string Inspector::url() const {
  return fmt::format("http://{}:{}/?token={}", shownHost(_options.host), _server->port(),
                     _options.token);
}

void Inspector::handle(const ReceivedRequest& request, Exchange& exchange) {
  try {
    route(request, exchange);
  } catch (const std::exception& error) {
    answerError(exchange, error);
  }
}

void Inspector::route(const ReceivedRequest& request, Exchange& exchange) {
  if (request.target.size() > longestTarget) throw APIError(414, "the address is too long");
  const auto target = parseTarget(request.target);
  if (!target) throw APIError(400, "the address is malformed");
  if (auto refusal = _access->refusal(request, *target)) return answerWith(exchange, *refusal);
  if (target->path.starts_with("/api/")) {
    API api{.inspected = _options.inspected, .reader = *_reader, .live = *_live};
    return callAPI(api, {.request = request,
                         .target = *target,
                         .id = "",
                         .exchange = exchange,
                         .now = _options.inspected.clock()});
  }
  if (auto entrance = _access->entrance(request, *target)) return answerWith(exchange, *entrance);
  answerFile(request, *target, exchange);
}

}  // namespace kite::tool
