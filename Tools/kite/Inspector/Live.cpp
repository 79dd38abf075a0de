#include "Inspector/Live.h"

#include "Inspector/RowsJSON.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace kite::tool {
namespace {

constexpr std::chrono::milliseconds betweenCounts{200};
constexpr std::chrono::seconds betweenSignsOfLife{15};
constexpr std::chrono::milliseconds idle{250};

std::string countsJSON(const Totals& totals) {
  return fmt::format(R"({{"events":{},"duplicates":{},"requests":{},"refused":{},"last_seq":{}}})",
                     totals.events, totals.duplicates, totals.requests, totals.refused,
                     totals.lastEvent);
}

}  // namespace

void Mailbox::add(std::vector<RepeatedEvent> repeated) {
  const std::scoped_lock lock(_mutex);
  for (RepeatedEvent& event : repeated) {
    if (_repeated.size() == mostRepeated) return;
    _repeated.push_back(std::move(event));
  }
}

std::vector<RepeatedEvent> Mailbox::take() {
  const std::scoped_lock lock(_mutex);
  return std::exchange(_repeated, {});
}

Live::Live(HTTPServer& server, EventReader& reader, const Inspected& inspected)
    : _server(server),
      _reader(reader),
      _inspected(inspected),
      _next(server.timer([this] { tell(); })),
      _aliveAt(Clock::now()) {
  _next->start(idle);
}

void Live::changed(std::vector<RepeatedEvent> repeated) {
  if (!repeated.empty()) _mailbox.add(std::move(repeated));
  _server.wake();
}

void Live::add(Exchange& exchange, std::shared_ptr<Listener> listener) {
  std::erase_if(_listeners, [](const auto& each) { return each.expired(); });
  if (_listeners.size() >= mostListeners) throw APIError(503, "too many clients listen");
  _listeners.push_back(listener);
  exchange.hold(std::move(listener));
  tellSoon();
}

void Live::cleared() {
  _isCleared = true;
  _mailbox.take();
  tellSoon();
}

std::chrono::milliseconds Live::restOfPause(Clock::duration sinceLast) {
  const auto rest = std::max<Clock::duration>(pause - sinceLast, Clock::duration::zero());
  return std::chrono::ceil<std::chrono::milliseconds>(rest);
}

void Live::tellSoon() {
  if (!std::exchange(_isTellingSoon, true)) _next->start(restOfPause(Clock::now() - _toldAt));
}

News Live::news() {
  const auto now = Clock::now();
  News news{.lastEvent = _reader.events().last,
            .lastRequest = _reader.requests().last,
            .repeated = _mailbox.take(),
            .faults = faultsJSON(_inspected.faults->list()),
            .counts = {},
            .isCleared = std::exchange(_isCleared, false),
            .isAliveTime = now - _aliveAt >= betweenSignsOfLife};
  if (news.isAliveTime) _aliveAt = now;
  if (now - _countedAt >= betweenCounts) {
    _countedAt = now;
    _counts = countsJSON(_reader.totals());
  }
  news.counts = _counts;
  return news;
}

void Live::tell() {
  _isTellingSoon = false;
  bool isMoreThere = false;
  try {
    News now = news();
    for (const auto& each : std::vector(_listeners)) {
      if (const auto listener = each.lock()) {
        isMoreThere = listener->advance(_reader, now) || isMoreThere;
      }
    }
  } catch (const StoreError&) {  // it is tried again
  }
  _toldAt = Clock::now();
  if (isMoreThere) return tellSoon();
  _next->start(idle);
}

}  // namespace kite::tool
