#include "Profile/StartupUserInfo.h"

#include "Profile/PlatformForKite.h"
#include "Profile/UserInfoKeys.h"

#include <algorithm>
#include <string_view>

namespace kite {

using namespace UserInfoKeys;

namespace {

std::string text(std::string_view key) { return std::string(key); }

/// The first non-empty piece before an underscore: "en" of "en_US".
std::optional<std::string> language(std::string_view identifier) {
  const auto begin = identifier.find_first_not_of('_');
  if (begin == std::string_view::npos) return std::nullopt;
  return std::string(identifier.substr(begin, identifier.find('_', begin) - begin));
}

JSONValue timeZoneInfo(const TimeZone& timeZone, Date now) {
  return JSONValue::Object{{text(secondsUserInfoKey), std::int64_t{timeZone.secondsFromUTC(now)}},
                           {text(timeZoneNameUserInfoKey), timeZone.identifier},
                           {text(daylighSavingUserInfoKey), timeZone.isDaylightSavingTime(now)}};
}

JSONValue deviceInfo(const Device& device, const std::vector<std::string>& languages) {
  return JSONValue::Object{
      {text(iosVersionUserInfoKey), device.systemVersion},
      {text(typeUserInfoKey), device.model},
      {text(platformUserInfoKey), platformForKite(device)},
      {text(deviceLanguageUserInfoKey), languages.empty() ? std::string() : languages.front()},
      {text(deviceAllLanguagesUserInfoKey), JSONValue::Array(languages.begin(), languages.end())}};
}

}  // namespace

JSONValue::Object startupUserInfo(const StartupUserInfoArguments& arguments) {
  const Locale& locale = arguments.locale;
  JSONValue::Object info{
      {text(frozenAppKey), Null{}},
      {text(localeUserInfoKey), locale.identifier},
      {text(appVersionUserInfoKey), arguments.appVersion},
      {text(bundleVersionUserInfoKey), arguments.bundleVersion},
      {text(timezoneUserInfoKey), timeZoneInfo(arguments.timeZone, arguments.now)},
      {text(deviceUserInfoKey), deviceInfo(arguments.device, locale.preferredLanguages)}};
  if (locale.regionCode) info.insertOrAssign(text(countryUserInfoKey), *locale.regionCode);
  if (const auto code = language(locale.identifier)) {
    info.insertOrAssign(text(languageUserInfoKey), *code);
  }
  if (arguments.libraryShortVersion) {
    info.insertOrAssign(text(libVersionInfoKey), *arguments.libraryShortVersion);
  }
  return info;
}

}  // namespace kite
