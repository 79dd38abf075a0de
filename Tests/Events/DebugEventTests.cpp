#include "Support/CatchFatalErrors.h"
#include "Support/FakeSystem.h"
#include "Support/ParsedJSON.h"
#include "Support/TrackedEvents.h"

#include <gmock/gmock.h>

#include <limits>

namespace kite::test {
namespace {

DebugEvent::Payload bare() {
  return {.id = FakeSystem::uuid(1),
          .timestamp = 12.5,
          .severity = Severity::error,
          .message = "decode failed",
          .category = "network",
          .domain = std::nullopt,
          .code = std::nullopt,
          .type = std::nullopt,
          .description = std::nullopt,
          .info = {},
          .file = "Client.cpp",
          .function = "decode",
          .line = 42};
}

TEST(DebugEventTests, tellsWhatItIsFromItsPayload) {
  const auto event = tracked(bare(), {.info = {{"a", 1}}, .ids = {}});
  EXPECT_EQ(event.type(), EventType(EventType::Case::debugEvent));
  EXPECT_EQ(event.id(), FakeSystem::uuid(1).text());
  EXPECT_EQ(event.timestamp(), 12.5);
  EXPECT_EQ(event.requestTimestamp(), std::nullopt);
  EXPECT_EQ(event.user()->info, (JSONValue::Object{{"a", 1}}));
}

TEST(DebugEventTests, keepsTheKeysOfWhatItLacksAsNull) {
  EXPECT_EQ(tracked(bare()).data(), parsedObject(R"({
    "severity": "Error", "message": "decode failed", "category": "network",
    "domain": null, "code": null, "type": null, "description": null, "info": {},
    "file": "Client.cpp", "function": "decode", "line": 42
  })"));
}

TEST(DebugEventTests, carriesEverythingItIsGiven) {
  auto payload = bare();
  payload.domain = "http";
  payload.code = "404";
  payload.type = "NotFound";
  payload.description = "no such page";
  payload.info = {{"bytes", 512}};
  const auto data = tracked(payload).data();
  EXPECT_EQ(*data.at("domain"), JSONValue("http"));
  EXPECT_EQ(*data.at("code"), JSONValue("404"));
  EXPECT_EQ(*data.at("type"), JSONValue("NotFound"));
  EXPECT_EQ(*data.at("description"), JSONValue("no such page"));
  EXPECT_EQ(*data.at("info"), parsed(R"({"bytes": 512})"));
}

TEST(DebugEventTests, writesEverySeverityAsItsText) {
  auto payload = bare();
  std::vector<std::string> texts;
  for (const auto severity : allSeverities) {
    payload.severity = severity;
    texts.push_back(*tracked(payload).data().at("severity")->string());
  }
  EXPECT_THAT(texts, testing::ElementsAre("Debug", "Notice", "Warning", "Error", "Critical"));
}

TEST(DebugEventTests, theLineIsAnInteger) {
  EXPECT_EQ(*tracked(bare()).data().at("line"), JSONValue(std::int64_t{42}));
}

TEST(DebugEventTests, theLargestSignedLineIsKept) {
  auto payload = bare();
  payload.line = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max());
  EXPECT_EQ(*tracked(payload).data().at("line"),
            JSONValue(std::numeric_limits<std::int64_t>::max()));
}

TEST(DebugEventTests, aLineAboveTheSignedRangeStopsTheProcess) {
  auto payload = bare();
  payload.line = std::uint64_t{1} << 63U;
  EXPECT_TRUE(fatalErrorOf([&] { static_cast<void>(tracked(payload)); }));
}

}  // namespace
}  // namespace kite::test
