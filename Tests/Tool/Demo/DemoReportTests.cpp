#include "Demo/DemoReport.h"

#include <gtest/gtest.h>

namespace kite::tool {
namespace {

TEST(DemoReport, isOneObject) {
  Comparison comparison;
  comparison.byType["A"] = {.tracked = 3, .delivered = 2, .duplicates = 1, .rejected = 1};
  comparison.byType["B"] = {.tracked = 4, .delivered = 4, .duplicates = 0, .rejected = 0};
  EXPECT_EQ(jsonReport(comparison, "/tmp/x.db"),
            R"({"tracked":7,"delivered":6,"duplicates":1,"rejected":1,"by_type":{)"
            R"("A":{"tracked":3,"delivered":2,"duplicates":1,"rejected":1},)"
            R"("B":{"tracked":4,"delivered":4,"duplicates":0,"rejected":0}},"db":"/tmp/x.db"})");
}

}  // namespace
}  // namespace kite::tool
