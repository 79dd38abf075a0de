#include "Install/DocumentDirectory.h"

#include <gtest/gtest.h>

namespace kite::test {
namespace {

FileManager with(std::vector<std::string> folders, std::optional<FileAttributes> attributes) {
  return {.urlsForDirectory = [folders](int, int) { return folders; },
          .attributesOfItem = [attributes](const std::string&) { return attributes; }};
}

TEST(DocumentDirectoryTests, tellsWhenTheFirstDocumentFolderWasMade) {
  std::optional<std::pair<int, int>> asked;
  std::string path;
  const FileManager files{.urlsForDirectory =
                              [&](int directory, int domain) {
                                asked = {directory, domain};
                                return std::vector<std::string>{"/first", "/second"};
                              },
                          .attributesOfItem =
                              [&](const std::string& item) {
                                path = item;
                                return std::optional(FileAttributes{.creationDate = Date{1000.5}});
                              }};
  EXPECT_EQ(documentDirectoryCreationTimestamp(files), std::optional(1000.5));
  EXPECT_EQ(asked, std::optional(std::pair(9, 1)));
  EXPECT_EQ(path, "/first");
}

TEST(DocumentDirectoryTests, isUnknownWithoutAFolder) {
  EXPECT_EQ(documentDirectoryCreationTimestamp(with({}, FileAttributes{Date{1}})), std::nullopt);
}

TEST(DocumentDirectoryTests, isUnknownWhenTheAttributesCannotBeRead) {
  EXPECT_EQ(documentDirectoryCreationTimestamp(with({"/first"}, std::nullopt)), std::nullopt);
}

TEST(DocumentDirectoryTests, isUnknownWithoutACreationDate) {
  EXPECT_EQ(documentDirectoryCreationTimestamp(with({"/first"}, FileAttributes{})), std::nullopt);
}

}  // namespace
}  // namespace kite::test
