#include "Inspector/API.h"
#include "Inspector/Page.h"
#include "Inspector/RowsJSON.h"

#include <fmt/format.h>

namespace kite::tool {
namespace {

constexpr std::size_t mostClientsShown = 1000;

std::string withNeighbours(EventReader& reader, const SessionRecord& session) {
  const bool isOpen = !session.hasEnded && !reader.sessionAfter(session);
  return sessionJSON(session, reader.sessionBefore(session), isOpen);
}

}  // namespace

void listSessions(API& api, const Call& call) {
  const auto page = std::make_shared<Page>(call, api.reader.sessions(), Order::newestFirst);
  const auto& members = call.target.members;
  const auto client =
      members.contains("client") ? std::optional(members.at("client")) : std::nullopt;
  answerPage(call.exchange, "sessions", page,
             [&reader = api.reader, client](SeqRange slice, Page& filled) {
               reader.scanSessions(slice, client, [&](const SessionRecord& session) {
                 return filled.offer(session, [&reader](const SessionRecord& each) {
                   return withNeighbours(reader, each);
                 });
               });
             });
}

void listClients(API& api, const Call& call) {
  std::string rows;
  for (const ClientRecord& client : api.reader.clients(mostClientsShown)) {
    rows += rows.empty() ? "" : ",";
    rows += clientJSON(client);
  }
  answerJSON(call.exchange, fmt::format(R"({{"clients":[{}]}})", rows));
}

}  // namespace kite::tool
