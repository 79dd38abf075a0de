#include "EndToEnd/Host.h"

#include <gmock/gmock.h>

namespace kite::test {
namespace {

using testing::IsEmpty;
using testing::SizeIs;

TEST(Fallback, triesEveryEndpointOnceInASync) {
  const Arguments down{"status:500x1000"};
  const Collector first({.faults = down});
  const Collector second({.faults = down, .certificates = first.certificates()});
  const Collector third({.faults = down, .certificates = first.certificates()});
  Application application;
  Host host(application, first,
            {"--secondary", second.url(), "--secondary", third.url(), "--secondary", first.url()});
  host.start();
  const auto failures = [&] {
    return static_cast<std::size_t>(occurrences(contents(application.log), "[KITE] \u274c ERROR"));
  };
  ASSERT_TRUE(eventually([&] { return failures() >= 3; }));
  host.enterBackground();  // suspends the syncs
  pause(2.5);              // longer than they are apart
  EXPECT_THAT(first.requests(), SizeIs(failures()));
  EXPECT_THAT(second.requests(), SizeIs(failures()));
  EXPECT_THAT(third.requests(), SizeIs(failures()));
  EXPECT_THAT(first.events(), IsEmpty());
}

TEST(Fallback, staysWithTheEndpointThatAnswered) {
  const Collector primary({.faults = {"status:500"}});
  const Collector secondary({.certificates = primary.certificates()});
  Application application;
  Host host(application, primary, {"--secondary", secondary.url()});
  host.start();
  ASSERT_TRUE(eventually([&] { return !secondary.events().empty(); }));
  host.track("later");
  EXPECT_TRUE(eventually([&] {
    const auto events = secondary.events();
    return !events.empty() && events.back().type == "UserAction";
  }));
  EXPECT_THAT(primary.requests(), SizeIs(1));
  EXPECT_THAT(primary.events(), IsEmpty());
}

}  // namespace
}  // namespace kite::test
