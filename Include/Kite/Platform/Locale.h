#pragma once

#include <Kite/Base/Date.h>

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace kite {

/// The user's language and region.
struct Locale {
  std::string identifier;  ///< such as "en_US"
  std::optional<std::string> regionCode;
  std::vector<std::string> preferredLanguages;  ///< most preferred first, such as "en-US"
};

struct TimeZone {
  std::string identifier;  ///< of the IANA time zone database, such as "Pacific/Auckland"
  std::function<int(Date)> secondsFromUTC;
  std::function<bool(Date)> isDaylightSavingTime;
};

}  // namespace kite
