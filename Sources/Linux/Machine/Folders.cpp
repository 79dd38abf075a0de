#include "Linux/Machine/Folders.h"

#include <pwd.h>
#include <unistd.h>

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

}  // namespace

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

}  // namespace kite::Linux
