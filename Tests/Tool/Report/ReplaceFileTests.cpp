#include "Report/ReplaceFile.h"

#include "Common/CommandFailure.h"
#include "Common/ReadFile.h"
#include "Support/TemporaryFolder.h"

#include <gmock/gmock.h>

#include <algorithm>

namespace kite::test {
namespace {

using tool::readFile;
using tool::replaceFile;

std::ptrdiff_t entriesOf(const std::filesystem::path& folder) {
  return std::distance(std::filesystem::directory_iterator(folder),
                       std::filesystem::directory_iterator());
}

TEST(ReplaceFile, takesThePlaceOfAnEarlierFile) {
  const TemporaryFolder folder;
  const std::string file = folder.path() / "days.svg";
  replaceFile(file, "first, and longer");
  replaceFile(file, "second");
  EXPECT_EQ(readFile(file), "second");
  EXPECT_EQ(entriesOf(folder.path()), 1);
}

TEST(ReplaceFile, leavesNothingBehindWhenItFails) {
  const TemporaryFolder folder;
  EXPECT_THROW(replaceFile(folder.path() / "absent/days.svg", "x"), tool::CommandFailure);
  std::filesystem::create_directory(folder.path() / "folder.svg");
  EXPECT_THROW(replaceFile(folder.path() / "folder.svg", "x"), tool::CommandFailure);
  EXPECT_EQ(entriesOf(folder.path()), 1);
}

}  // namespace
}  // namespace kite::test
