#include "Host/HostLocale.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>

namespace kite::tool {
namespace {

bool isRegion(std::string_view part) {
  const auto isUpper = [](char c) { return c >= 'A' && c <= 'Z'; };
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  return (part.size() == 2 && std::all_of(part.begin(), part.end(), isUpper)) ||
         (part.size() == 3 && std::all_of(part.begin(), part.end(), isDigit));
}

}  // namespace

std::optional<std::string> regionCode(std::string_view identifier) {
  const auto plain = identifier.substr(0, identifier.find('@'));
  const auto at = plain.find_last_of("_-");
  if (at == plain.npos || !isRegion(plain.substr(at + 1))) return std::nullopt;
  return std::string(plain.substr(at + 1));
}

bool isTimeZone(const std::string& name) {
  const char* const folder = std::getenv("TZDIR");
  const std::filesystem::path relative(name);
  if (relative.is_absolute() || name.find("..") != name.npos) return false;
  std::ifstream file((folder ? folder : "/usr/share/zoneinfo") / relative, std::ios::binary);
  char magic[4] = {};
  return file.read(magic, sizeof magic) && std::string_view(magic, sizeof magic) == "TZif";
}

void setTimeZone(const std::string& name) {
  ::setenv("TZ", name.c_str(), 1);
  ::tzset();
}

Locale hostLocale(const HostOptions& options, Locale system) {
  if (options.locale) {
    system.identifier = *options.locale;
    system.regionCode = regionCode(*options.locale);
  }
  if (!options.preferredLanguages.empty()) system.preferredLanguages = options.preferredLanguages;
  return system;
}

}  // namespace kite::tool
