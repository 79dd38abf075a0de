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

RowsText eventRows(EventReader& reader, SeqRange slice, const Query& query) {
  RowsText rows{.slice = slice};
  reader.scanEvents(slice, Order::oldestFirst, query.filter(), [&](const EventRecord& event) {
    if (!query.matches(event)) return true;
    if (!rows.text.empty()) rows.text += ',';
    rows.text += rowJSON(event);
    rows.last = event.seq;
    return true;
  });
  return rows;
}

/// Server-sent events.
class Stream final : public Listener {
 public:
  Stream(Exchange& exchange, Query query, Seq lastEvent, Seq lastRequest)
      : _exchange(exchange),
        _query(std::move(query)),
        _lastEvent(lastEvent),
        _lastRequest(lastRequest) {}

  bool advance(EventReader& reader, News& news) override {
    if (_isGone) return false;
    if (_exchange.unsent() > tooMuchUnsent) {
      _isGone = true;
      _exchange.reset();
      return false;
    }
    _frames.clear();
    if (news.isCleared) put("cleared", "{}");
    const bool hasRoom = _exchange.unsent() <= muchUnsent;
    if (hasRoom) putEvents(reader, news);
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

  void putEvents(EventReader& reader, News& news) {
    if (_lastEvent >= news.lastEvent) return;
    const SeqRange slice{.first = _lastEvent + 1,
                         .last = std::min(news.lastEvent, _lastEvent + rowsAtOnce)};
    _lastEvent = slice.last;
    if (_query.size() > 0) return putRows(eventRows(reader, slice, _query));
    auto& every = news.everyEvent;
    if (!every || every->slice != slice) every = eventRows(reader, slice, _query);
    putRows(*every);
  }

  void putRows(const RowsText& rows) {
    if (rows.text.empty()) return;
    _frames += fmt::format("id: {}\n", rows.last);
    put("events", "[" + rows.text + "]");
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
