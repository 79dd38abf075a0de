#include "Collector/Server/HTTPServer.h"
#include "Collector/Service.h"
#include "CollectorRequests.h"
#include "FakeStore.h"
#include "Inspector/PlainHTTP.h"
#include "MetricsText.h"

#include <gmock/gmock.h>

#include <condition_variable>
#include <future>
#include <set>
#include <thread>

namespace kite::test {
namespace {

using ::testing::HasSubstr;
using tool::HTTPServer;
using tool::RequestReport;
using tool::Service;

/// Holds whoever comes to it until it is opened.
class Gate {
 public:
  void pass() {
    std::unique_lock lock(_mutex);
    ++_held;
    _isChanged.notify_all();
    _isChanged.wait(lock, [this] { return _isOpen; });
  }
  /// Returns when so many were held.
  void waitFor(int held) {
    std::unique_lock lock(_mutex);
    _isChanged.wait(lock, [this, held] { return _held >= held; });
  }
  void open() {
    const std::scoped_lock lock(_mutex);
    _isOpen = true;
    _isChanged.notify_all();
  }

 private:
  std::mutex _mutex;
  std::condition_variable _isChanged;
  int _held = 0;
  bool _isOpen = false;
};

/// An upload on a connection of its own.
class Upload {
 public:
  Upload(std::uint16_t port, const tool::ReceivedRequest& request) : _connection(port) {
    PlainHeaders headers{"Connection: close"};
    for (const auto& [name, value] : request.headers) headers.push_back(name + ": " + value);
    _connection.send(requestText(request.method, request.target, headers, request.body));
  }
  Answer answer() { return parseAnswer(_connection.receiveAll()); }
  /// Whether the connection ends without one.
  bool isDropped() { return _connection.receiveAll().empty(); }

 private:
  PlainConnection _connection;
};

/// The service on a server of its own, over plain HTTP, with a fake database that several workers
/// share.
class CollectorPool : public ::testing::Test {
 protected:
  ~CollectorPool() override {
    gate.open();
    stop();
  }

  void start(std::size_t workers, tool::WorkBound bound = {},
             std::chrono::milliseconds patience = std::chrono::hours(1)) {
    tool::ServiceOptions options{
        .key = key,
        .clock = [] { return now; },
        .report = [this](const RequestReport& report) { noteReport(report); },
        .longestWait = patience,
        .bound = bound,
        .wake = [this] { server->wake(); }};
    for (std::size_t i = 0; i < workers; ++i) {
      options.pool.push_back(std::make_unique<FakeStore>(database));
    }
    service = std::make_shared<Service>(std::move(options));
    auto listening = HTTPServer::listen(
        {.host = "127.0.0.1",
         .port = 0,
         .certificate = std::nullopt,
         .handle = [this](tool::ReceivedRequest request, tool::Exchange& exchange) {
           service->handle(std::move(request), exchange);
         }});
    ASSERT_TRUE(listening) << listening.error();
    server = *std::move(listening);
    server->onWake([this] { service->finish(); });
    thread = std::thread([this] { server->run(); });
  }

  void stop() {
    if (!thread.joinable()) return;
    service->stop();
    server->stop();
    thread.join();
    server.reset();
  }

  /// All that is stored waits for the gate.
  void holdStores() {
    database->onStore = [this](const tool::Accepted&) { gate.pass(); };
  }

  Upload send(int number) { return send(number, {aCustomEvent(numbered(anID, number))}); }
  Upload send(int number, const std::vector<std::string>& events) {
    return {server->port(), aRequest(aBody(events), numbered(aRequestID, number))};
  }

  Answer health() const {
    PlainConnection connection(server->port());
    connection.send(requestText("GET", "/health", {"Host: x", "Connection: close"}));
    return parseAnswer(connection.receiveAll());
  }

  template <class Condition>
  void waitUntil(const Condition& condition) const {
    while (!condition(service->load())) std::this_thread::yield();
  }
  void waitForWaiting(std::size_t uploads) const {
    waitUntil([uploads](const tool::WorkLoad& load) { return load.waiting == uploads; });
  }

  std::size_t storedEvents() const {
    const std::scoped_lock lock(database->mutex);
    return database->events.size();
  }

  void noteReport(const RequestReport& report) {
    const std::scoped_lock lock(mutex);
    reports.push_back(report);
    reporters.insert(std::this_thread::get_id());
  }

  Gate gate;
  std::shared_ptr<FakeDatabase> database = std::make_shared<FakeDatabase>();
  std::mutex mutex;
  std::vector<RequestReport> reports;   // guarded by mutex
  std::set<std::thread::id> reporters;  // guarded by mutex
  std::unique_ptr<HTTPServer> server;
  std::shared_ptr<Service> service;
  std::thread thread;
};

TEST_F(CollectorPool, storesAsManyUploadsAtOnceAsItHasWorkers) {
  holdStores();
  start(3);
  Upload first = send(1);
  Upload second = send(2);
  Upload third = send(3);
  gate.waitFor(3);
  gate.open();
  for (Upload* each : {&first, &second, &third}) EXPECT_EQ(each->answer().status, 200);
  EXPECT_EQ(storedEvents(), 3U);
}

TEST_F(CollectorPool, answersWhatIsDoneBeforeWhatCameBefore) {
  database->onStore = [this](const tool::Accepted& accepted) {
    if (accepted.batch.events.front().id == numbered(anID, 1)) gate.pass();
  };
  start(2);
  Upload slow = send(1);
  gate.waitFor(1);
  EXPECT_EQ(send(2).answer().status, 200);
  EXPECT_EQ(send(3).answer().status, 200);
  gate.open();
  EXPECT_EQ(slow.answer().status, 200);
}

TEST_F(CollectorPool, answersAtOnceWhenTooManyUploadsWait) {
  holdStores();
  start(1, {.waiting = 1});
  Upload stored = send(1);
  gate.waitFor(1);
  Upload waiting = send(2);
  waitForWaiting(1);
  const Answer refused = send(3).answer();
  EXPECT_EQ(refused.status, 503);
  EXPECT_EQ(refused.body, R"({"error_code":0,"message":"the collector has too much to do"})");
  EXPECT_EQ(health().status, 200);
  gate.open();
  EXPECT_EQ(stored.answer().status, 200);
  EXPECT_EQ(waiting.answer().status, 200);
  EXPECT_EQ(send(3).answer().status, 200) << "its request id was not used up";
}

TEST_F(CollectorPool, answersAtOnceWhenTooManyBytesWait) {
  holdStores();
  const auto size = aRequest(aBody({aCustomEvent(numbered(anID, 1))})).body.size();
  start(1, {.bytes = 2 * size + size / 2});
  Upload stored = send(1);
  gate.waitFor(1);
  Upload waiting = send(2);
  waitForWaiting(1);
  EXPECT_EQ(send(3).answer().status, 503);
  gate.open();
  EXPECT_EQ(stored.answer().status, 200);
  EXPECT_EQ(waiting.answer().status, 200);
  waitUntil([](const tool::WorkLoad& load) { return load.bytes == 0; });
  EXPECT_EQ(send(3).answer().status, 200);
}

TEST_F(CollectorPool, doesNotStoreWhatWaitedTooLong) {
  holdStores();
  start(1, {}, std::chrono::milliseconds(-1));  // also what waited for no time at all
  const Answer late = send(1).answer();
  EXPECT_EQ(late.status, 503);
  EXPECT_THAT(late.body, HasSubstr("the collector has too much to do"));
  EXPECT_EQ(storedEvents(), 0U);
  const std::scoped_lock lock(database->mutex);
  EXPECT_TRUE(database->records.empty()) << "the store was asked though there was no time left";
}

TEST_F(CollectorPool, storesARequestOnceThatComesTwiceAtOnce) {
  holdStores();
  start(2);
  Upload one = send(1);
  Upload other = send(1);
  gate.waitFor(2);
  gate.open();
  const std::multiset<int> statuses{one.answer().status, other.answer().status};
  EXPECT_EQ(statuses, (std::multiset<int>{200, 400}));
  EXPECT_EQ(service->metrics().statistics().newEvents, 1U);
  EXPECT_EQ(service->metrics().statistics().duplicates, 0U);
}

TEST_F(CollectorPool, storesEachEventOnceHoweverManyUploadsHoldIt) {
  start(4);
  std::vector<std::thread> clients;
  for (int client = 0; client < 4; ++client) {
    clients.emplace_back([this, client] {
      for (int round = 0; round < 20; ++round) {
        const auto sent = send(client * 100 + round, {aCustomEvent(numbered(anID, round)),
                                                      aCustomEvent(numbered(anID, round + 1))})
                              .answer();
        EXPECT_EQ(sent.status, 200) << sent.body;
      }
    });
  }
  for (std::thread& client : clients) client.join();
  const auto statistics = service->metrics().statistics();
  EXPECT_EQ(statistics.accepted, 80U);
  EXPECT_EQ(statistics.newEvents, 21U);
  EXPECT_EQ(statistics.duplicates, 139U);
}

TEST_F(CollectorPool, reportsOnTheServersThreadBeforeItAnswers) {
  start(3);
  for (int number = 0; number < 10; ++number) {
    send(number).answer();
    const std::scoped_lock lock(mutex);
    EXPECT_EQ(reports.size(), static_cast<std::size_t>(number) + 1);
  }
  const std::scoped_lock lock(mutex);
  EXPECT_EQ(reporters, std::set<std::thread::id>{thread.get_id()});
}

TEST_F(CollectorPool, recordsWhatItAnswered) {
  start(2);
  send(1).answer();
  EXPECT_EQ(send(1).answer().status, 400);
  const std::scoped_lock lock(database->mutex);
  ASSERT_EQ(database->records.size(), 2U);
  EXPECT_EQ(database->records[0].status, 200);
  EXPECT_EQ(database->records[1].status, 400);
  EXPECT_EQ(database->records[1].attempt, 1);
}

TEST_F(CollectorPool, letsFaultsStrikeAsWithoutThreads) {
  start(2);
  for (const std::string fault : {"delay:0", "status:500", "reset"}) {
    service->faults().add(*tool::parseFault(fault));
  }
  EXPECT_EQ(send(1).answer().status, 200);
  EXPECT_EQ(send(2).answer().status, 500);
  EXPECT_TRUE(send(3).isDropped());
  EXPECT_EQ(send(4).answer().status, 200);
  EXPECT_EQ(storedEvents(), 2U);
}

TEST_F(CollectorPool, storesWhatAClientSentThatLeft) {
  holdStores();
  start(1);
  {
    const Upload left = send(1);
    gate.waitFor(1);
  }
  EXPECT_EQ(health().status, 200);
  gate.open();
  EXPECT_EQ(send(2).answer().status, 200);
  EXPECT_EQ(storedEvents(), 2U);
}

TEST_F(CollectorPool, answersWhatIsBeingStoredWhenItStopsAndForgetsWhatWaits) {
  holdStores();
  start(1);
  Upload stored = send(1);
  gate.waitFor(1);
  Upload waiting = send(2);
  waitForWaiting(1);
  auto stopped = std::async(std::launch::async, [this] { stop(); });
  waitForWaiting(0);
  gate.open();
  stopped.get();
  EXPECT_EQ(stored.answer().status, 200);
  EXPECT_TRUE(waiting.isDropped());
  EXPECT_EQ(storedEvents(), 1U);
}

TEST_F(CollectorPool, tellsItsLoad) {
  holdStores();
  start(2, {.waiting = 1});
  const auto metric = [this](const std::string& name) {
    return MetricsText(service->metricsText())["kite_collector_" + name];
  };
  Upload first = send(1);
  gate.waitFor(1);
  Upload second = send(2);
  gate.waitFor(2);
  Upload waiting = send(3);
  waitForWaiting(1);
  EXPECT_EQ(send(4).answer().status, 503);
  EXPECT_EQ(metric("store_connections"), 2);
  EXPECT_EQ(metric("busy_store_connections"), 2);
  EXPECT_EQ(metric("waiting_requests"), 1);
  EXPECT_GT(metric("unfinished_bytes"), 0);
  EXPECT_EQ(metric("requests_total{outcome=\"busy\"}"), 1);
  EXPECT_EQ(metric("requests_total{outcome=\"unavailable\"}"), 0);
  gate.open();
  for (Upload* each : {&first, &second, &waiting}) EXPECT_EQ(each->answer().status, 200);
  waitUntil([](const tool::WorkLoad& load) { return load.busy == 0 && load.bytes == 0; });
  EXPECT_EQ(metric("busy_store_connections"), 0);
  EXPECT_EQ(metric("waiting_requests"), 0);
}

}  // namespace
}  // namespace kite::test
