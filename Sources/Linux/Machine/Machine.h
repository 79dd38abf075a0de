#pragma once

#include <Kite/Linux/LinuxPlatform.h>

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

/// What the system tells where a host says nothing.
namespace kite::Linux {

/// The value of an environment variable; nothing when it is unset or empty.
using Environment = std::function<std::optional<std::string>(const char* name)>;
Environment processEnvironment();

/// Where an application keeps what: in the XDG base directories.
struct Folders {
  std::filesystem::path data;
  std::filesystem::path secrets;
  /// Left out of backups. A host that names its own data folder gets none.
  std::optional<std::string> notBackedUp;
};
Folders foldersFor(const PlatformOptions& options, const Environment& environment);

/// The file system, in which `documents` is the user's document folder.
FileManager fileManager(std::filesystem::path documents);

/// The locale that LC_ALL, LC_MESSAGES or LANG names, the first that is set; its languages are
/// those of LANGUAGE, if there are any. "en" when nothing is named, or only the C locale.
Locale localeFrom(const Environment& environment);

/// Where the machine says which time zone it is in.
struct TimeZoneFiles {
  std::filesystem::path link = "/etc/localtime";
  std::filesystem::path name = "/etc/timezone";
};
/// What the process's time zone is called: as TZ has it, else as the machine's files do; "UTC" when
/// nobody says.
std::string timeZoneName(const std::optional<std::string>& TZ, const TimeZoneFiles& files = {});
/// The process's time zone. Its offsets are those of `localtime_r`.
TimeZone timeZone();

/// Files that describe the machine and its system.
struct DeviceFiles {
  std::filesystem::path release = "/etc/os-release";
  std::filesystem::path vendorRelease = "/usr/lib/os-release";
  std::filesystem::path product = "/sys/class/dmi/id/product_name";
};
/// This machine. It has no identifier for vendors.
std::shared_ptr<const Device> device(const DeviceFiles& files = {});

}  // namespace kite::Linux
