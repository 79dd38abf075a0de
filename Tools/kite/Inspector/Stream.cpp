#include "Inspector/Access.h"
#include "Inspector/Live.h"
#include "Inspector/Page.h"
#include "Inspector/RowsJSON.h"

#include <fmt/format.h>

#include <algorithm>

namespace kite::tool {
namespace {

constexpr Seq rowsAtOnce = 1000;
constexpr std::size_t muchUnsent = 256 * 1024;          // bytes; no more rows until some are taken
constexpr std::size_t tooMuchUnsent = 4 * 1024 * 1024;  // the client is gone, and resumes by id

/// Server-sent events.
class Stream final : public Listener {
 public:
  Stream(Exchange& exchange, Query query, Seq lastEvent, Seq lastRequest)
      : _exchange(exchange),
        _query(std::move(query)),
        _lastEvent(lastEvent),
        _lastRequest(lastRequest) {}

  bool advance(EventReader& reader, const News& news) override {
    if (_isGone) return false;
    if (_exchange.unsent() > tooMuchUnsent) {
      _isGone = true;
      _exchange.reset();
      return false;
    }
    _frames.clear();
    if (news.isCleared) put("cleared", "{}");
    const bool hasRoom = _exchange.unsent() <= muchUnsent;
    if (hasRoom) putEvents(reader, news.lastEvent);
    if (!news.repeated.empty()) put("duplicates", repeatedJSON(news.repeated));
    if (hasRoom) putRequests(reader, news.lastRequest);
    putIfNew("faults", news.faults, _faults);
    putIfNew("counts", news.counts, _counts);
    if (news.isAliveTime && _frames.empty()) _frames = ": alive\n\n";
    if (!_frames.empty()) _exchange.send(_frames);
    return _lastEvent < news.lastEvent || _lastRequest < news.lastRequest;
  }

 private:
  void put(std::string_view name, std::string_view json) {
    _frames += fmt::format("event: {}\ndata: {}\n\n", name, json);
  }

  void putIfNew(std::string_view name, const std::string& json, std::string& last) {
    if (json != last) put(name, json);
    last = json;
  }

  void putEvents(EventReader& reader, Seq newest) {
    if (_lastEvent >= newest) return;
    std::string rows;
    Seq lastRow = 0;
    const SeqRange slice{.first = _lastEvent + 1,
                         .last = std::min(newest, _lastEvent + rowsAtOnce)};
    reader.scanEvents(slice, Order::oldestFirst, _query.filter(), [&](const EventRecord& event) {
      if (!_query.matches(event)) return true;
      rows += (rows.empty() ? "" : ",") + rowJSON(event);
      lastRow = event.seq;
      return true;
    });
    _lastEvent = slice.last;
    if (rows.empty()) return;
    _frames += fmt::format("id: {}\n", lastRow);
    put("events", "[" + rows + "]");
  }

  void putRequests(EventReader& reader, Seq newest) {
    if (_lastRequest >= newest) return;
    std::string rows;
    const SeqRange slice{.first = _lastRequest + 1,
                         .last = std::min(newest, _lastRequest + rowsAtOnce)};
    reader.scanRequests(slice, Order::oldestFirst, [&rows](const RequestRecord& request) {
      rows += (rows.empty() ? "" : ",") + requestJSON(request);
      return true;
    });
    _lastRequest = slice.last;
    if (!rows.empty()) put("request", "[" + rows + "]");
  }

  Exchange& _exchange;
  Query _query;
  Seq _lastEvent;
  Seq _lastRequest;
  std::string _faults;
  std::string _counts;
  std::string _frames;
  bool _isGone = false;
};

/// Behind which event the client wants to go on: what it saw last counts for more than where it
/// began.
Seq lastSeen(const Call& call, SeqRange events) {
  const auto id = call.request.header("Last-Event-ID");
  if (!id.empty()) {
    const auto seq = wholeNumber(id);
    if (!seq) throw APIError(400, "Last-Event-ID is a whole number");
    return std::min(*seq, events.last);
  }
  if (!call.target.members.contains("after")) return events.last;
  return withinMembers(call, events).first - 1;
}

}  // namespace

void streamChanges(API& api, const Call& call) {
  const auto events = api.reader.events();
  auto stream = std::make_shared<Stream>(call.exchange, call.query(), lastSeen(call, events),
                                         api.reader.requests().last);
  api.live.add(call.exchange, std::move(stream));
  Reply head{
      .status = 200, .headers = {{"Content-Type", "text/event-stream"}}, .body = "retry: 1000\n\n"};
  addSecurityHeaders(head);
  call.exchange.begin(head);
}

}  // namespace kite::tool
