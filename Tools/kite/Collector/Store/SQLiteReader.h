#pragma once

#include "Collector/Store/SQLiteSchema.h"

namespace kite::tool {

/// Reads a file that a store made, whoever writes it meanwhile. No read lasts longer than one call.
class SQLiteReader final : public EventReader {
 public:
  /// Throws a `StoreError` when the file cannot be used.
  explicit SQLiteReader(const std::string& path);

  SeqRange events() override { return rangeOf(_eventRange); }
  void scanEvents(SeqRange range, Order order, const EventFilter& filter,
                  const std::function<bool(const EventRecord&)>& visit) override;
  std::optional<EventRecord> event(const std::string& id) override;
  std::optional<EventRecord> eventBefore(const EventRecord& event) override;
  SeqRange requests() override { return rangeOf(_requestRange); }
  void scanRequests(SeqRange range, Order order,
                    const std::function<bool(const RequestRecord&)>& visit) override;
  std::optional<RequestRecord> request(Seq seq) override;
  std::optional<std::string> refusedBody(Seq seq) override;
  SeqRange sessions() override { return rangeOf(_sessionRange); }
  void scanSessions(SeqRange range, const std::optional<std::string>& client,
                    const std::function<bool(const SessionRecord&)>& visit) override;
  std::optional<SessionRecord> sessionBefore(const SessionRecord& session) override;
  std::optional<SessionRecord> sessionAfter(const SessionRecord& session) override;
  std::vector<ClientRecord> clients(std::size_t limit) override;
  Totals totals() override;

 private:
  static SeqRange rangeOf(Statement& statement);

  Connection _connection;
  Statement _eventRange;
  Statement _eventsUp;
  Statement _eventsDown;
  Statement _event;
  Statement _eventBefore;
  Statement _requestRange;
  Statement _requestsUp;
  Statement _requestsDown;
  Statement _body;
  Statement _sessionRange;
  Statement _sessions;
  Statement _sessionBefore;
  Statement _sessionAfter;
  Statement _clients;
  Statement _types;
  Statement _counts;
};

}  // namespace kite::tool
