#include "EndToEnd/Host.h"

#include <gmock/gmock.h>
#include <simdjson.h>

#include <algorithm>
#include <set>

namespace kite::test {
namespace {

TEST(Demo, deliversEverythingThatItTracked) {
  const Folder folder;
  const auto result = run({"demo", "--json", "--events", "500", "--state", folder / "demo"});
  ASSERT_EQ(result.status, 0) << result.errors;
  simdjson::dom::parser parser;
  const simdjson::padded_string text(result.output);
  const auto report = parser.parse(text);
  const std::int64_t tracked = report["tracked"].get_int64();
  EXPECT_GE(tracked, 500);
  EXPECT_EQ(report["delivered"].get_int64().value(), tracked);
  EXPECT_EQ(report["rejected"].get_int64().value(), 0);
  const auto events = collected(std::string(report["db"].get_string().value()));
  EXPECT_EQ(static_cast<std::int64_t>(events.size()), tracked);
  const auto all = types(events);
  EXPECT_THAT(std::set<std::string>(all.begin(), all.end()),
              testing::IsSupersetOf({"UserInfoUpdated", "Install", "Session", "UserAction",
                                     "Orders", "DebugEvent", "ExperimentSegmentReceived"}));
  EXPECT_EQ(std::count(all.begin(), all.end(), "Install"), 3);  // new, updated, installed again
  EXPECT_TRUE(queued(folder / "demo").empty());
}

}  // namespace
}  // namespace kite::test
