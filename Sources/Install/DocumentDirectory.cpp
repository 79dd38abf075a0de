#include "Install/DocumentDirectory.h"

namespace kite {

std::optional<double> documentDirectoryCreationTimestamp(const FileManager& fileManager) {
  const auto folders =
      fileManager.urlsForDirectory(FileManager::documentDirectory, FileManager::userDomainMask);
  if (folders.empty()) return std::nullopt;
  const auto attributes = fileManager.attributesOfItem(folders.front());
  if (!attributes || !attributes->creationDate) return std::nullopt;
  return attributes->creationDate->secondsSince1970;
}

}  // namespace kite
