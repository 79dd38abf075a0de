#include "EndToEnd/Host.h"

#include <gmock/gmock.h>

#include <memory>
#include <set>

namespace kite::test {
namespace {

using testing::ElementsAre;
using testing::Field;

TEST(Batches, leaveTwoSecondsApartOnceTheEndpointIsUp) {
  constexpr std::size_t total = 1234;
  const Collector other;  // whose authority the host trusts
  auto closed = std::make_unique<ClosedPort>();
  const auto address = closed->address();
  Application application;
  Host host(application, closed->url(), other.ca(), {"--start-in-background"});
  host.start();
  for (std::size_t at = 2; at < total; ++at) host.track("action");  // two are the library's own
  ASSERT_TRUE(eventually([&] { return queued(application.state).size() == total; }));

  closed.reset();
  const Collector collector({.certificates = other.certificates(), .listen = address});
  EXPECT_TRUE(eventually([&] { return queued(application.state).empty(); }));
  EXPECT_THAT(collector.requests(),
              ElementsAre(Field(&Request::newEvents, 500), Field(&Request::newEvents, 500),
                          Field(&Request::newEvents, 234)));
  std::set<double> times;
  for (const auto& event : collector.events()) times.insert(event.requestTimestamp);
  ASSERT_EQ(times.size(), 3U);
  EXPECT_NEAR(*std::next(times.begin()) - *times.begin(), 2, 0.8);
  EXPECT_NEAR(*times.rbegin() - *std::next(times.begin()), 2, 0.8);
}

}  // namespace
}  // namespace kite::test
