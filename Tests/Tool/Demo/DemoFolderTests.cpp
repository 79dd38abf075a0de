#include "Demo/DemoFolder.h"

#include "Common/CommandFailure.h"

#include <gtest/gtest.h>

#include <fstream>

namespace kite::tool {
namespace {

namespace fs = std::filesystem;

class DemoFolderTests : public testing::Test {
 protected:
  ~DemoFolderTests() override { fs::remove_all(base); }

  const fs::path base = makeDemoFolder("");
};

TEST_F(DemoFolderTests, isANewOneInTheTemporaryFolder) {
  EXPECT_EQ(base.parent_path(), fs::temp_directory_path());
  const auto other = makeDemoFolder("");
  EXPECT_NE(other, base);
  fs::remove_all(other);
}

TEST_F(DemoFolderTests, isTheWantedOneWhenThatIsEmpty) {
  fs::create_directory(base / "empty");
  EXPECT_EQ(makeDemoFolder(base / "empty"), base / "empty");
  EXPECT_EQ(makeDemoFolder(base / "a new" / "one"), base / "a new" / "one");
}

TEST_F(DemoFolderTests, isANewOneInsideTheWantedOneWhenThatIsInUse) {
  const auto wanted = makeDemoFolder(base / "wanted");
  const auto second = makeDemoFolder(wanted);
  EXPECT_EQ(second.parent_path(), wanted);
  EXPECT_NE(makeDemoFolder(wanted), second);
}

TEST_F(DemoFolderTests, hasAFolderForTheCollector) {
  EXPECT_TRUE(fs::is_directory(base / "collector"));
}

TEST_F(DemoFolderTests, cannotBeAFile) {
  std::ofstream(base / "file") << "x";
  EXPECT_THROW(makeDemoFolder(base / "file"), CommandFailure);
  EXPECT_THROW(makeDemoFolder(base / "file" / "below"), CommandFailure);
}

}  // namespace
}  // namespace kite::tool
