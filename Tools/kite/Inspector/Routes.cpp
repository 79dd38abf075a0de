#include "Inspector/API.h"

namespace kite::tool {
namespace {

/// What stands in the place of "{id}", or nothing when the paths differ. A path without one gives
/// the empty text.
std::optional<std::string> matched(std::string_view pattern, std::string_view path) {
  constexpr std::string_view hole = "{id}";
  const auto at = pattern.find(hole);
  if (at == std::string_view::npos) return pattern == path ? std::optional("") : std::nullopt;
  const auto before = pattern.substr(0, at);
  const auto behind = pattern.substr(at + hole.size());
  if (path.size() <= before.size() + behind.size() || !path.starts_with(before) ||
      !path.ends_with(behind)) {
    return std::nullopt;
  }
  const auto id = path.substr(at, path.size() - before.size() - behind.size());
  if (id.find('/') != std::string_view::npos) return std::nullopt;
  return std::string(id);
}

}  // namespace

const std::vector<Route>& apiRoutes() {
  static const std::vector<Route> routes{
      {"GET", "/api/events", listEvents},         {"DELETE", "/api/events", clearEvents},
      {"GET", "/api/events/{id}", showEvent},     {"GET", "/api/requests", listRequests},
      {"GET", "/api/requests/{id}", showRequest}, {"GET", "/api/requests/{id}/body", showBody},
      {"GET", "/api/sessions", listSessions},     {"GET", "/api/clients", listClients},
      {"GET", "/api/summary", summarize},         {"GET", "/api/stream", streamChanges},
      {"POST", "/api/expect", expectEvents},      {"GET", "/api/faults", listFaults},
      {"POST", "/api/faults", addFault},          {"DELETE", "/api/faults", clearFaults},
      {"GET", "/api/export", exportEvents}};
  return routes;
}

void callAPI(API& api, const Call& call) {
  bool isKnown = false;
  for (const Route& route : apiRoutes()) {
    const auto id = matched(route.path, call.target.path);
    isKnown = isKnown || id;
    if (!id || route.method != call.request.method) continue;
    return route.handle(api, {.request = call.request,
                              .target = call.target,
                              .id = *id,
                              .exchange = call.exchange,
                              .now = call.now});
  }
  if (isKnown) throw APIError(405, "this path does not take " + call.request.method);
  throw APIError(404, "there is nothing at this path");
}

}  // namespace kite::tool
