#include "Inspector/API.h"
#include "Inspector/Access.h"
#include "Inspector/ExportFormat.h"
#include "Inspector/Page.h"

namespace kite::tool {
namespace {

constexpr std::size_t enoughUnsent = 1024 * 1024;  // bytes
constexpr std::chrono::milliseconds untilTaken{20};

struct Exported {
  Query query;
  Slices slices;
  const ExportFormat& format;
  bool isFirst = true;
};

Pause sendSlice(Exported& exported, EventReader& reader, Exchange& exchange) {
  if (exchange.unsent() > enoughUnsent) return untilTaken;
  const auto slice = exported.slices.next();
  if (!slice) {
    if (!exported.format.foot.empty()) exchange.send(exported.format.foot);
    exchange.end();
    return std::nullopt;
  }
  std::string text;
  reader.scanEvents(*slice, Order::oldestFirst, exported.query.filter(),
                    [&](const EventRecord& event) {
                      if (!exported.query.matches(event)) return true;
                      if (!exported.isFirst) text += exported.format.between;
                      exported.isFirst = false;
                      text += exported.format.row(event);
                      return true;
                    });
  if (!text.empty()) exchange.send(text);
  return atOnce;
}

}  // namespace

void exportEvents(API& api, const Call& call) {
  const ExportFormat& format = exportFormat(call.target.member("format"));
  auto exported = std::make_shared<Exported>(
      Exported{.query = call.query(),
               .slices = Slices(withinMembers(call, api.reader.events()), Order::oldestFirst),
               .format = format});
  Reply head{.status = 200,
             .headers = {{"Content-Type", std::string(format.contentType)},
                         {"Content-Disposition",
                          "attachment; filename=\"" + std::string(format.file) + "\""}},
             .body = std::string(format.head)};
  addSecurityHeaders(head);
  call.exchange.begin(head);
  runInSlices(call.exchange, [exported, &reader = api.reader](Exchange& exchange) -> Pause {
    try {
      return sendSlice(*exported, reader, exchange);
    } catch (const StoreError&) {  // half an answer is seen to be one
      exchange.reset();
      return std::nullopt;
    }
  });
}

}  // namespace kite::tool
