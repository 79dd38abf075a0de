#include "PostgresServer.h"

#include "Collector/Store/PostgresSchema.h"
#include "CollectorClient.h"
#include "CollectorRequests.h"

#include <gmock/gmock.h>

#include <atomic>
#include <thread>
#include <vector>

namespace kite::test {
namespace {

using ::testing::HasSubstr;

/// A collector that stores into a PostgreSQL database.
class PostgresCollector {
 public:
  PostgresCollector(const std::string& database, std::size_t connections)
      : _collector({.key = key,
                    .database = database,
                    .certificate = tool::SelfSignedFolder{_folder.path() / "tls"},
                    .clock = [] { return now; },
                    .databaseConnections = connections}) {
    const auto started = _collector.start();
    if (!started) throw std::runtime_error(started.error());
    _address = *started;
  }

  const tool::CollectorAddress& address() const { return _address; }
  tool::CollectorStatistics statistics() const { return _collector.statistics(); }
  std::string nextRequestID() { return numbered(aRequestID, ++_requests); }

  /// Sends the events of these numbers, from a client of its own.
  Fetched send(Client& client, int sender, int first, int count) {
    std::vector<std::string> events;
    for (int number = first; number < first + count; ++number) {
      events.push_back(aCustomEvent(numbered(anID, number)));
    }
    auto request = aRequest(aBody(events), nextRequestID());
    header(request, "Kite-Client-ID").value = "client-" + std::to_string(sender);
    return client.post(request);
  }
  Fetched send(int first, int count) {
    Client client(_address);
    return send(client, 0, first, count);
  }

  /// Sends them as a host does, until they are stored.
  void insist(Client& client, int sender, int first, int count) {
    while (send(client, sender, first, count).status != 200) std::this_thread::yield();
  }

 private:
  TemporaryFolder _folder;
  tool::Collector _collector;
  tool::CollectorAddress _address;
  std::atomic<int> _requests = 0;
};

TEST(PostgresCollector, opensAsManyConnectionsAsItIsTold) {
  const PostgresDatabase database;
  const PostgresCollector collector(database.place(), 3);
  EXPECT_EQ(database.query("SELECT count(*) FROM pg_stat_activity WHERE datname = '" +
                           database.name() + "' AND application_name = 'kite'"),
            "3\n");
}

TEST(PostgresCollector, storesEachEventOnceHoweverManyUploadsHoldItAtOnce) {
  constexpr int uploads = 10;
  const PostgresDatabase database;
  PostgresCollector collector(database.place(), 4);
  std::vector<std::thread> clients;
  for (int sender = 0; sender < 6; ++sender) {
    clients.emplace_back([&collector, sender] {
      Client client(collector.address());
      for (int round = 0; round < uploads; ++round) {
        collector.insist(client, sender, round * 10, 25);
      }
    });
  }
  for (std::thread& client : clients) client.join();
  const auto statistics = collector.statistics();
  EXPECT_EQ(statistics.newEvents, 115U);
  EXPECT_EQ(statistics.duplicates, 6 * uploads * 25 - 115U);
  EXPECT_EQ(database.query("SELECT count(*), count(DISTINCT id), sum(duplicates) FROM events"),
            "115 115 1385\n");
  EXPECT_EQ(database.query("SELECT sum(events), sum(duplicates) FROM type_counts"), "115 1385\n");
}

TEST(PostgresCollector, answersWithinTwoSecondsHoweverManyStatementsAreSlow) {
  const PostgresDatabase database;
  PostgresCollector collector(database.place(), 2);
  EXPECT_EQ(collector.send(1, 1).status, 200);
  const OtherSession other(database.place());
  other.run("BEGIN; LOCK TABLE events, received_requests");
  const Fetched refused = collector.send(2, 1);
  EXPECT_EQ(refused.status, 503);
  EXPECT_THAT(refused.body, HasSubstr("the database is away"));
  EXPECT_LT(refused.microseconds, 2'000'000);
}

TEST(PostgresCollector, goesOnByItselfOnAllConnectionsWhenTheServerComesBack) {
  PostgresServer server;
  queryPostgres(server.address("postgres"), "CREATE DATABASE kite");
  tool::migrate(server.address("kite"), std::nullopt);
  PostgresCollector collector(server.address("kite"), 3);
  EXPECT_EQ(collector.send(1, 1).status, 200);
  server.stop();
  for (int upload = 0; upload < 3; ++upload) EXPECT_EQ(collector.send(2, 1).status, 503);
  server.start();
  std::vector<std::thread> clients;
  for (int sender = 0; sender < 3; ++sender) {
    clients.emplace_back([&collector, sender] {
      Client client(collector.address());
      collector.insist(client, sender, 10 * (sender + 1), 5);
    });
  }
  for (std::thread& client : clients) client.join();
  EXPECT_EQ(queryPostgres(server.address("kite"), "SELECT count(*) FROM events"), "16\n");
}

}  // namespace
}  // namespace kite::test
