#include "Linux/Machine/FileManagerDefaults.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <utility>

namespace kite::Linux {

namespace {

// Not every file system remembers when a file was made.
std::optional<FileAttributes> attributesOf(const std::string& path) {
  struct statx status {};
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &status) != 0) return std::nullopt;
  if ((status.stx_mask & STATX_BTIME) == 0) return FileAttributes{};
  return FileAttributes{Date{static_cast<double>(status.stx_btime.tv_sec) +
                             1e-9 * static_cast<double>(status.stx_btime.tv_nsec)}};
}

}  // namespace

FileManager fileManager(std::filesystem::path documents) {
  return {
      .urlsForDirectory =
          [documents = std::move(documents)](int directory, int mask) {
            const bool isKnown =
                directory == FileManager::documentDirectory && mask == FileManager::userDomainMask;
            return isKnown ? std::vector<std::string>{documents.string()}
                           : std::vector<std::string>{};
          },
      .attributesOfItem = attributesOf,
  };
}

}  // namespace kite::Linux
