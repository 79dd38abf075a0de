#pragma once

#include "Collector/Store/PostgresConnection.h"

namespace kite::tool {

/// Reads a database that collectors write to meanwhile.
class PostgresReader final : public EventReader {
 public:
  /// Throws a `StoreError` when the database cannot be used.
  explicit PostgresReader(const std::string& url);

  SeqRange events() override;
  void scanEvents(SeqRange range, Order order, const EventFilter& filter,
                  const std::function<bool(const EventRecord&)>& visit) override;
  std::optional<EventRecord> event(const std::string& id) override;
  std::optional<EventRecord> eventBefore(const EventRecord& event) override;
  SeqRange requests() override;
  void scanRequests(SeqRange range, Order order,
                    const std::function<bool(const RequestRecord&)>& visit) override;
  std::optional<RequestRecord> request(Seq seq) override;
  std::optional<std::string> refusedBody(Seq seq) override;
  SeqRange sessions() override;
  void scanSessions(SeqRange range, const std::optional<std::string>& client,
                    const std::function<bool(const SessionRecord&)>& visit) override;
  std::optional<SessionRecord> sessionBefore(const SessionRecord& session) override;
  std::optional<SessionRecord> sessionAfter(const SessionRecord& session) override;
  std::vector<ClientRecord> clients(std::size_t limit) override;
  Totals totals() override;

 private:
  PostgresRows read(const PostgresQuery& query, const PostgresParameters& parameters);
  SeqRange range(const PostgresQuery& query);

  PostgresConnection _connection;
};

}  // namespace kite::tool
