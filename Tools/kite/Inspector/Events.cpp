#include "Inspector/API.h"
#include "Inspector/Live.h"
#include "Inspector/Page.h"
#include "Inspector/RowsJSON.h"

#include <fmt/format.h>

namespace kite::tool {

void listEvents(API& api, const Call& call) {
  const std::string order = call.target.member("order");
  if (!order.empty() && order != "asc" && order != "desc") {
    throw APIError(400, "order is asc or desc");
  }
  const bool isRising = order.empty() ? call.target.members.contains("after") : order == "asc";
  const auto page = std::make_shared<Page>(call, api.reader.events(),
                                           isRising ? Order::oldestFirst : Order::newestFirst);
  answerPage(call.exchange, "events", page, [&reader = api.reader](SeqRange slice, Page& filled) {
    reader.scanEvents(slice, filled.slices().order(), filled.query().filter(),
                      [&filled](const EventRecord& event) { return filled.offer(event, rowJSON); });
  });
}

void showEvent(API& api, const Call& call) {
  const auto event = api.reader.event(call.id);
  if (!event) throw APIError(404, "there is no such event");
  answerJSON(call.exchange, detailJSON(*event, api.reader.eventBefore(*event)));
}

void clearEvents(API& api, const Call& call) {
  auto store = openStore(api.inspected.database);
  if (!store) throw StoreError(store.error());
  const auto count = (*std::move(store))->clear();
  api.live.cleared();
  answerJSON(call.exchange, fmt::format(R"({{"deleted":{}}})", count));
}

}  // namespace kite::tool
