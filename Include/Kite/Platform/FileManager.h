#pragma once

#include <Kite/Base/Date.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kite {

struct FileAttributes {
  std::optional<Date> creationDate;
};

/// Questions to the file system.
struct FileManager {
  static constexpr int documentDirectory = 9;
  static constexpr int userDomainMask = 1;

  /// Paths of a well-known folder, the best one first.
  std::function<std::vector<std::string>(int directory, int domainMask)> urlsForDirectory;
  /// Nothing when the attributes cannot be read.
  std::function<std::optional<FileAttributes>(const std::string& path)> attributesOfItem;
};

}  // namespace kite
