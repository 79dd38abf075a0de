#include <Kite/Linux/LinuxPlatform.h>

#include "JSON/JSONDecoder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <limits>
#include <string>
#include <thread>
#include <vector>

namespace kite::Linux {
namespace {

Whisker::DebugEvent anEvent() {
  return {.severity = Whisker::Severity::warning,
          .categories = {"inner"},
          .description = "two\nlines",
          .errorCode = 7,
          .info = {{"bytes", 3}}};
}

class JSONLinesWhiskerTests : public testing::Test {
 protected:
  JSONLinesWhiskerTests() {
    std::string folder = std::filesystem::temp_directory_path() / "kite-whisker-XXXXXX";
    _folder = ::mkdtemp(folder.data());
  }
  ~JSONLinesWhiskerTests() override { std::filesystem::remove_all(_folder); }

  std::filesystem::path file() const { return _folder / "telemetry"; }
  std::vector<JSONValue> lines() const {
    std::ifstream in(file());
    std::vector<JSONValue> result;
    for (std::string line; std::getline(in, line);)
      result.push_back(decodeJSON(line).value_or("not JSON"));
    return result;
  }
  static JSONValue member(const JSONValue& line, const char* key) {
    const auto* const object = line.object();
    const auto* const found = object ? object->at(std::string(key)) : nullptr;
    return found ? *found : JSONValue("absent");
  }

 private:
  std::filesystem::path _folder;
};

TEST_F(JSONLinesWhiskerTests, writesOneObjectPerReport) {
  const auto whisker = jsonLinesWhisker(file());
  whisker->report(anEvent(), {"Source.cpp", "function()", 12});
  whisker->report(anEvent(), {"Source.cpp", "function()", 13});
  ASSERT_EQ(lines().size(), 2u);
  const auto line = lines().front();
  EXPECT_EQ(member(line, "severity"), "warning");
  EXPECT_EQ(member(line, "categories"), (JSONValue::Array{"inner"}));
  EXPECT_EQ(member(line, "description"), "two\nlines");
  EXPECT_EQ(member(line, "error_code"), 7);
  EXPECT_EQ(member(line, "info"), (JSONValue::Object{{"bytes", 3}}));
  EXPECT_EQ(member(line, "file"), "Source.cpp");
  EXPECT_EQ(member(line, "function"), "function()");
  EXPECT_EQ(member(line, "line"), 12);
  EXPECT_NE(member(line, "timestamp").real(), nullptr);
}

TEST_F(JSONLinesWhiskerTests, leavesOutAnAbsentErrorCode) {
  auto event = anEvent();
  event.errorCode.reset();
  jsonLinesWhisker(file())->report(event, {});
  EXPECT_EQ(member(lines().front(), "error_code"), "absent");
}

TEST_F(JSONLinesWhiskerTests, namesEverySeverity) {
  const auto whisker = jsonLinesWhisker(file());
  using enum Whisker::Severity;
  for (const auto severity : {info, warning, error, critical}) {
    auto event = anEvent();
    event.severity = severity;
    whisker->report(event, {});
  }
  std::vector<JSONValue> texts;
  for (const auto& line : lines()) texts.push_back(member(line, "severity"));
  EXPECT_EQ(texts, (std::vector<JSONValue>{"info", "warning", "error", "critical"}));
}

TEST_F(JSONLinesWhiskerTests, putsTheScopesCategoriesInFront) {
  const auto whisker = jsonLinesWhisker(file())->scoped({"outer"})->scoped({"middle"});
  whisker->report(anEvent(), {});
  EXPECT_EQ(member(lines().front(), "categories"), (JSONValue::Array{"outer", "middle", "inner"}));
}

TEST_F(JSONLinesWhiskerTests, appendsToWhatAnEarlierRunLeft) {
  jsonLinesWhisker(file())->report(anEvent(), {});
  jsonLinesWhisker(file())->report(anEvent(), {});
  EXPECT_EQ(lines().size(), 2u);
}

TEST_F(JSONLinesWhiskerTests, makesAFileForItsOwnerOnly) {
  jsonLinesWhisker(file())->report(anEvent(), {});
  struct stat status {};
  ASSERT_EQ(::stat(file().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

TEST_F(JSONLinesWhiskerTests, reportsTheRestOfAnEventWhoseInfoHasNoText) {
  auto event = anEvent();
  event.info = {{"ratio", std::numeric_limits<double>::infinity()}};
  jsonLinesWhisker(file())->report(event, {});
  ASSERT_EQ(lines().size(), 1u);
  EXPECT_EQ(member(lines().front(), "description"), "two\nlines");
  EXPECT_NE(member(member(lines().front(), "info"), "encoding_error"), "absent");
}

TEST_F(JSONLinesWhiskerTests, keepsLinesWholeWhenThreadsReportAtOnce) {
  const auto whisker = jsonLinesWhisker(file());
  std::vector<std::thread> threads;
  for (int t = 0; t < 3; ++t)
    threads.emplace_back([whisker] {
      for (int i = 0; i < 50; ++i) whisker->report(anEvent(), {});
    });
  for (auto& thread : threads) thread.join();
  const auto written = lines();
  EXPECT_EQ(written.size(), 150u);
  for (const auto& line : written) EXPECT_EQ(member(line, "severity"), "warning");
}

TEST_F(JSONLinesWhiskerTests, writesToStandardErrorWithoutAFile) {
  testing::internal::CaptureStderr();
  jsonLinesWhisker()->report(anEvent(), {});
  const auto line = decodeJSON(testing::internal::GetCapturedStderr());
  ASSERT_TRUE(line);
  EXPECT_EQ(member(*line, "severity"), "warning");
}

TEST_F(JSONLinesWhiskerTests, writesToStandardErrorWhenTheFileIsALink) {
  std::filesystem::create_symlink(file().string() + ".target", file());
  testing::internal::CaptureStderr();
  jsonLinesWhisker(file())->report(anEvent(), {});
  const auto captured = testing::internal::GetCapturedStderr();
  EXPECT_TRUE(captured.starts_with("[KITE] Telemetry goes to standard error: cannot open " +
                                   file().string() + "\n"))
      << captured;
  EXPECT_NE(captured.find("\"severity\":\"warning\""), std::string::npos) << captured;
  EXPECT_FALSE(std::filesystem::exists(file().string() + ".target"));
}

}  // namespace
}  // namespace kite::Linux
