#include "Linux/Machine/Machine.h"

#include "Linux/Storage/PrivateFolder.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <ctime>
#include <string_view>
#include <system_error>

namespace kite::Linux {
namespace {

constexpr std::string_view database = "zoneinfo/";
constexpr std::size_t longestName = 256;

std::string firstWord(std::string_view text) {
  return std::string(text.substr(0, text.find_first_of(" \t\r\n")));
}

/// "Europe/Berlin" of "/usr/share/zoneinfo/Europe/Berlin", or of a link to that; else nothing.
std::string nameOf(const std::filesystem::path& file) {
  std::error_code error;
  for (const auto& path : {file, std::filesystem::read_symlink(file, error)})
    if (const auto at = path.string().rfind(database); at != std::string::npos)
      return path.string().substr(at + database.size());
  return {};
}

tm localTime(Date date) {
  constexpr double farthest = 2e11;  // in years of four digits
  const double seconds = std::floor(date.secondsSince1970);
  const auto whole =
      std::isnan(seconds) ? 0 : static_cast<std::time_t>(std::clamp(seconds, -farthest, farthest));
  tm local{};
  ::localtime_r(&whole, &local);
  return local;
}

}  // namespace

std::string timeZoneName(const std::optional<std::string>& TZ, const TimeZoneFiles& files) {
  auto link = files.link;
  if (TZ) {
    const auto given = firstWord(TZ->starts_with(':') ? TZ->substr(1) : *TZ);
    if (!given.starts_with('/')) return given.empty() ? "UTC" : given;
    link = given;
  }
  auto name = nameOf(link);
  if (name.empty()) name = firstWord(readFile(files.name, longestName).value_or(""));
  return name.empty() ? "UTC" : name;
}

TimeZone timeZone() {
  const char* const variable = std::getenv("TZ");
  return {
      .identifier = timeZoneName(variable ? std::optional<std::string>(variable) : std::nullopt),
      .secondsFromUTC = [](Date date) { return static_cast<int>(localTime(date).tm_gmtoff); },
      .isDaylightSavingTime = [](Date date) { return localTime(date).tm_isdst > 0; },
  };
}

}  // namespace kite::Linux
