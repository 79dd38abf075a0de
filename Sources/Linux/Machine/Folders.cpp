#include "Linux/Machine/Machine.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <utility>
#include <vector>

namespace kite::Linux {
namespace {

std::filesystem::path home(const Environment& environment) {
  if (const auto folder = environment("HOME")) return *folder;
  passwd entry{};
  passwd* found = nullptr;
  char text[4096];
  ::getpwuid_r(::geteuid(), &entry, text, sizeof text, &found);
  return found && found->pw_dir ? found->pw_dir : "/";
}

// Paths that are not absolute are to be ignored.
std::filesystem::path base(const Environment& environment, const char* variable,
                           const char* fallback) {
  const std::filesystem::path named = environment(variable).value_or("");
  return named.is_absolute() ? named : home(environment) / fallback;
}

// A file name even when the host gives none, or a path.
std::string folderName(const std::string& applicationName) {
  const auto name = std::filesystem::path(applicationName).filename().string();
  return name.empty() || name == "." || name == ".." ? "kite-application" : name;
}

// Not every file system remembers when a file was made.
std::optional<FileAttributes> attributesOf(const std::string& path) {
  struct statx status {};
  if (::statx(AT_FDCWD, path.c_str(), 0, STATX_BTIME, &status) != 0) return std::nullopt;
  if ((status.stx_mask & STATX_BTIME) == 0) return FileAttributes{};
  return FileAttributes{Date{static_cast<double>(status.stx_btime.tv_sec) +
                             1e-9 * static_cast<double>(status.stx_btime.tv_nsec)}};
}

}  // namespace

Environment processEnvironment() {
  return [](const char* name) -> std::optional<std::string> {
    const auto* value = std::getenv(name);
    return value && *value ? std::optional<std::string>(value) : std::nullopt;
  };
}

Folders foldersFor(const PlatformOptions& options, const Environment& environment) {
  const auto name = folderName(options.applicationName);
  const auto data = base(environment, "XDG_DATA_HOME", ".local/share");
  Folders folders{.data = options.dataFolder.value_or(data / name),
                  .secrets = options.secretsFolder.value_or(data / "kite-secrets" / name),
                  .notBackedUp = std::nullopt};
  if (!options.dataFolder)
    folders.notBackedUp = base(environment, "XDG_STATE_HOME", ".local/state") / name;
  return folders;
}

StoreFolders defaultStoreFolders(const std::string& applicationName) {
  const auto folders = foldersFor({.applicationName = applicationName}, processEnvironment());
  return {folders.data, folders.secrets};
}

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
