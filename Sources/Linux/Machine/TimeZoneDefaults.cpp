#include "Linux/Machine/TimeZoneDefaults.h"

#include "Linux/Machine/ZoneFile.h"
#include "Linux/Storage/PrivateFolder.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <string_view>
#include <system_error>
#include <utility>

namespace kite::Linux {

namespace {

// The years that calendar arithmetic is good for.
constexpr double farthest = 2e11;
constexpr std::size_t longestName = 256;

std::int64_t wholeSeconds(Date date) {
  const double seconds = std::floor(date.secondsSince1970);
  return std::isnan(seconds) ? 0
                             : static_cast<std::int64_t>(std::clamp(seconds, -farthest, farthest));
}

// Names come as paths, too: "/usr/share/zoneinfo/Europe/Berlin".
std::string nameIn(std::string_view text) {
  constexpr std::string_view folder = "zoneinfo/";
  if (text.starts_with(':')) text.remove_prefix(1);
  if (const auto at = text.rfind(folder); at != std::string_view::npos)
    text.remove_prefix(at + folder.size());
  return std::string(text.substr(0, text.find_first_of(" \t\r\n")));
}

std::string linkTarget(const std::filesystem::path& link) {
  std::error_code error;
  return std::filesystem::read_symlink(link, error).string();
}

TimeZone zone(std::string identifier, ZoneFile file) {
  const auto shared = std::make_shared<const ZoneFile>(std::move(file));
  return {
      .identifier = std::move(identifier),
      .secondsFromUTC =
          [shared](Date date) { return shared->at(wholeSeconds(date)).secondsFromUTC; },
      .isDaylightSavingTime =
          [shared](Date date) { return shared->at(wholeSeconds(date)).isDaylightSavingTime; },
  };
}

TimeZone utc() {
  return {.identifier = "UTC",
          .secondsFromUTC = [](Date) { return 0; },
          .isDaylightSavingTime = [](Date) { return false; }};
}

}  // namespace

TimeZone timeZoneFrom(const std::optional<std::string>& given, const Environment& environment,
                      const TimeZoneFiles& files) {
  const std::string candidates[] = {given.value_or(""), environment("TZ").value_or(""),
                                    readFile(files.name, longestName).value_or(""),
                                    linkTarget(files.link)};
  for (const auto& candidate : candidates) {
    auto name = nameIn(candidate);
    if (auto file = ZoneFile::load(name, files.zones))
      return zone(std::move(name), *std::move(file));
  }
  return utc();
}

}  // namespace kite::Linux
