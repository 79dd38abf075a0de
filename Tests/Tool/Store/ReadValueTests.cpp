#include "Store/PutValue.h"

#include "Common/CommandFailure.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

namespace kite::tool {
namespace {

class ReadValueTests : public testing::Test {
 protected:
  ~ReadValueTests() override { std::filesystem::remove(file); }

  StoreValue read(const std::string& content, std::string_view form) {
    std::ofstream(file, std::ios::binary) << content;
    return readValue(file, form);
  }

  const std::filesystem::path file =
      std::filesystem::temp_directory_path() /
      (std::string("kite-read-value-") +
       testing::UnitTest::GetInstance()->current_test_info()->name());
};

TEST_F(ReadValueTests, keepsDataAsItIs) {
  const std::string bytes("\0\xff\n", 3);
  EXPECT_EQ(read(bytes, "data"), StoreValue(Data{bytes}));
}

TEST_F(ReadValueTests, keepsTheBytesOfJSONAsTheyAre) {
  EXPECT_EQ(read(" {\"a\" : 1}\n", "json"), StoreValue(Data{" {\"a\" : 1}\n"}));
}

TEST_F(ReadValueTests, refusesWhatIsNotJSON) {
  EXPECT_THROW(read("{", "json"), CommandFailure);
  EXPECT_THROW(read("{", "number"), CommandFailure);
}

TEST_F(ReadValueTests, readsANumber) {
  EXPECT_EQ(read("37", "number"), StoreValue(37.0));
  EXPECT_EQ(read("0.5\n", "number"), StoreValue(0.5));
  EXPECT_THROW(read("\"1\"", "number"), CommandFailure);
}

TEST_F(ReadValueTests, readsAPropertyList) {
  const auto value = read(R"(<?xml version="1.0" encoding="UTF-8"?>
<plist version="1.0"><dict>
  <key>text</key><string>é</string><key>yes</key><true/><key>no</key><false/>
  <key>whole</key><integer>-5</integer><key>real</key><real>2.5</real>
  <key>date</key><date>2001-01-01T00:00:10Z</date><key>bytes</key><data>AAE=</data>
  <key>list</key><array><integer>1</integer><dict/></array>
</dict></plist>)",
                          "plist");
  const auto& dictionary = std::get<DynamicValue::Dictionary>(value);
  EXPECT_EQ(*valueFor(dictionary, "text"), DynamicValue("é"));
  EXPECT_EQ(*valueFor(dictionary, "yes"), DynamicValue(true));
  EXPECT_EQ(*valueFor(dictionary, "no"), DynamicValue(false));
  EXPECT_EQ(*valueFor(dictionary, "whole"), DynamicValue(-5));
  EXPECT_EQ(*valueFor(dictionary, "real"), DynamicValue(2.5));
  EXPECT_EQ(*valueFor(dictionary, "date"), DynamicValue(Date::sinceReferenceDate(10)));
  EXPECT_EQ(*valueFor(dictionary, "bytes"), DynamicValue(Data{std::string("\0\1", 2)}));
  EXPECT_EQ(*valueFor(dictionary, "list"),
            DynamicValue(DynamicValue::Array{1, DynamicValue::Dictionary{}}));
}

TEST_F(ReadValueTests, refusesAPropertyListWithoutADictionary) {
  EXPECT_THROW(read("<plist version=\"1.0\"><array/></plist>", "plist"), CommandFailure);
  EXPECT_THROW(read("nonsense", "plist"), CommandFailure);
  EXPECT_THROW(read("", "plist"), CommandFailure);
}

TEST_F(ReadValueTests, refusesAFileThatIsNotThere) {
  EXPECT_THROW(readValue(file / "nowhere", "data"), CommandFailure);
  EXPECT_THROW(readValue(std::filesystem::temp_directory_path(), "data"), CommandFailure);
}

}  // namespace
}  // namespace kite::tool
