#include "Collector/JSONText.h"
#include "Collector/RequestReport.h"

#include <gtest/gtest.h>

namespace kite::test {
namespace {

using tool::clipped;
using tool::jsonLine;
using tool::quotedJSON;
using tool::realJSON;

TEST(CollectorReport, isOneJSONObject) {
  EXPECT_EQ(
      jsonLine(
          {.method = "POST", .path = "/v4/events", .status = 200, .newEvents = 2, .duplicates = 1}),
      R"({"event":"request","method":"POST","path":"/v4/events","status":200,)"
      R"("events":3,"new":2,"duplicates":1})");
}

TEST(CollectorReport, tellsRefusalsAndFaults) {
  EXPECT_EQ(jsonLine({.method = "POST",
                      .path = "/v4/events",
                      .status = 503,
                      .errorCode = 0,
                      .message = "fault",
                      .fault = "status:503"}),
            R"({"event":"request","method":"POST","path":"/v4/events","status":503,)"
            R"("error_code":0,"message":"fault","events":0,"new":0,"duplicates":0,)"
            R"("fault":"status:503"})");
}

TEST(CollectorReport, staysOneLineOfJSONWhateverThePathIs) {
  EXPECT_EQ(jsonLine({.method = "GET", .path = "/\"\n\xFF", .status = 404}),
            "{\"event\":\"request\",\"method\":\"GET\",\"path\":\"/\\\"\\n\uFFFD\",\"status\":404,"
            "\"events\":0,\"new\":0,\"duplicates\":0}");
}

TEST(CollectorJSONText, escapesWhatJSONWantsEscaped) {
  EXPECT_EQ(quotedJSON("a\"b\\c\n\x01\x1F/é"), R"("a\"b\\c\n\u0001\u001f/é")");
}

TEST(CollectorJSONText, replacesBytesThatAreNotUTF8) {
  EXPECT_EQ(quotedJSON("a\xC3"), "\"a\uFFFD\"");
}

TEST(CollectorJSONText, writesRealsThatReadBackAsTheSame) {
  EXPECT_EQ(realJSON(0.1), "0.1");
  EXPECT_EQ(realJSON(-2), "-2.0");
  EXPECT_EQ(realJSON(0), "0.0");
  EXPECT_EQ(realJSON(1765432100.123456), "1765432100.123456");
  EXPECT_EQ(realJSON(1e300), "1e+300");
}

TEST(CollectorJSONText, isCutBetweenCharacters) {
  EXPECT_EQ(clipped("aéb", 4), "aéb");
  EXPECT_EQ(clipped("aéb", 3), "aé…");
  EXPECT_EQ(clipped("aéb", 2), "a…");
}

}  // namespace
}  // namespace kite::test
