#include "Inspector/Access.h"
#include "Inspector/Live.h"
#include "Inspector/RowsJSON.h"

#include "Collector/JSONText.h"

#include <fmt/format.h>
#include <simdjson.h>

#include <algorithm>

namespace kite::tool {
namespace {

namespace dom = simdjson::dom;
using Clock = std::chrono::steady_clock;

constexpr Seq rowsChecked = 2000;
constexpr std::size_t mostNearest = 5;
constexpr double longestWait = 3600;
constexpr std::int64_t highestCount = 1'000'000'000;

struct Expected {
  Query match;
  std::int64_t count = 1;
  double within = 0;  ///< seconds
};

/// An event that does not match, and how many terms hold for it.
struct Miss {
  std::size_t holding;
  EventRecord event;
};

class Expectation final : public Listener {
 public:
  Expectation(Exchange& exchange, Live& live, Expected expected)
      : _exchange(exchange),
        _expected(std::move(expected)),
        _begin(Clock::now()),
        _deadline(live.timer([&live] { live.tellSoon(); })) {
    const std::chrono::duration<double, std::milli> within(1000 * _expected.within);
    _deadline->start(std::chrono::ceil<std::chrono::milliseconds>(within));
  }

  bool advance(EventReader& reader, News& news) override {
    if (_isAnswered) return false;
    if (_last < news.lastEvent) look(reader, news.lastEvent);
    const bool hasSeenAll = _last >= news.lastEvent;
    if (_matched >= _expected.count || (hasSeenAll && waited() >= _expected.within)) {
      _isAnswered = true;
      _exchange.send(answer());
      _exchange.end();
    }
    return !_isAnswered && !hasSeenAll;
  }

 private:
  void look(EventReader& reader, Seq newest) {
    const Seq first = std::max(_last + 1, reader.events().first);
    const Seq last = std::min(newest, first + rowsChecked - 1);
    reader.scanEvents({first, last}, Order::oldestFirst, {}, [this](const EventRecord& event) {
      if (_expected.match.matches(event)) {
        ++_matched;
      } else {
        missed(event);
      }
      return true;
    });
    _last = last;
  }

  /// The nearest are those for which the most terms hold, and of these the newest.
  void missed(const EventRecord& event) {
    const std::size_t holding = _expected.match.size() - _expected.match.differences(event).size();
    const auto place = std::ranges::find_if(
        _nearest, [holding](const Miss& miss) { return miss.holding <= holding; });
    if (place == _nearest.end() && _nearest.size() >= mostNearest) return;
    _nearest.insert(place, {.holding = holding, .event = event});
    if (_nearest.size() > mostNearest) _nearest.pop_back();
  }

  double waited() const { return std::chrono::duration<double>(Clock::now() - _begin).count(); }

  std::string answer() const {
    const bool isMet = _matched >= _expected.count;
    std::string misses;
    for (std::size_t at = 0; !isMet && at < _nearest.size(); ++at) {
      std::string differs;
      for (const std::string& each : _expected.match.differences(_nearest[at].event)) {
        differs += (differs.empty() ? "" : ",") + quotedJSON(each);
      }
      misses += fmt::format(R"({}{{"event":{},"differs":[{}]}})", at > 0 ? "," : "",
                            rowJSON(_nearest[at].event), differs);
    }
    return fmt::format(R"({{"ok":{},"matched":{},"count":{},"waited":{},"nearest":[{}]}})", isMet,
                       _matched, _expected.count, realJSON(waited()), misses);
  }

  Exchange& _exchange;
  Expected _expected;
  Clock::time_point _begin;
  std::unique_ptr<ServerTimer> _deadline;
  Seq _last = 0;
  std::int64_t _matched = 0;
  std::vector<Miss> _nearest;
  bool _isAnswered = false;
};

[[noreturn]] void refuseBody() {
  throw APIError(400,
                 R"(the body is {"match":TEXT,"count":N,"within":SECONDS}; count is 1 and within )"
                 R"(0 unless given, and at most 3600)");
}

Expected expectedBy(const Call& call) {
  dom::parser parser;
  dom::object body;
  if (parser.parse(call.request.body).get(body) != simdjson::SUCCESS) refuseBody();
  Expected expected;
  std::string_view match;
  for (const auto member : body) {
    const bool isRead =
        (member.key == "match" && member.value.get(match) == simdjson::SUCCESS) ||
        (member.key == "count" && member.value.get(expected.count) == simdjson::SUCCESS) ||
        (member.key == "within" && member.value.get(expected.within) == simdjson::SUCCESS);
    if (!isRead) refuseBody();
  }
  if (body.at_key("match").error() != simdjson::SUCCESS || expected.count < 1 ||
      expected.count > highestCount || expected.within < 0 || expected.within > longestWait) {
    refuseBody();
  }
  auto query = Query::parse(match, call.now);
  if (!query) throw APIError(400, query.error());
  expected.match = *std::move(query);
  return expected;
}

}  // namespace

void expectEvents(API& api, const Call& call) {
  auto expectation = std::make_shared<Expectation>(call.exchange, api.live, expectedBy(call));
  api.live.add(call.exchange, std::move(expectation));
  // The answer begins at once, so that a client that leaves is noticed.
  Reply head{.status = 200, .headers = {{"Content-Type", "application/json"}}, .body = ""};
  addSecurityHeaders(head);
  call.exchange.begin(head);
}

}  // namespace kite::tool
