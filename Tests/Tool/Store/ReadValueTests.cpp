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

TEST_F(ReadValueTests, keepsTheBytesOfAPropertyListAsTheyAre) {
  const std::string list = "<plist version=\"1.0\"><dict><key>a</key><true/></dict></plist>\n";
  EXPECT_EQ(read(list, "plist"), StoreValue(PropertyList{{list}}));
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
