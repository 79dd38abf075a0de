#pragma once

#include <string_view>

/// The keys of the user info that the library fills itself.
namespace kite::UserInfoKeys {

inline constexpr std::string_view frozenAppKey = "is_frozen_app";
inline constexpr std::string_view countryUserInfoKey = "country";
inline constexpr std::string_view languageUserInfoKey = "app_language";
inline constexpr std::string_view localeUserInfoKey = "locale";
inline constexpr std::string_view appVersionUserInfoKey = "app_version";
inline constexpr std::string_view bundleVersionUserInfoKey = "bundle_version";
inline constexpr std::string_view timezoneUserInfoKey = "timezone";
inline constexpr std::string_view secondsUserInfoKey = "seconds";
inline constexpr std::string_view timeZoneNameUserInfoKey = "name";
inline constexpr std::string_view daylighSavingUserInfoKey = "daylight_saving";
inline constexpr std::string_view deviceUserInfoKey = "device";
inline constexpr std::string_view iosVersionUserInfoKey = "ios_version";
inline constexpr std::string_view typeUserInfoKey = "type";
inline constexpr std::string_view platformUserInfoKey = "platform";
inline constexpr std::string_view deviceLanguageUserInfoKey = "language";
inline constexpr std::string_view deviceAllLanguagesUserInfoKey = "all_languages";
inline constexpr std::string_view libVersionInfoKey = "kite_lib_version";
inline constexpr std::string_view searchAdsKey = "search_ads";
inline constexpr std::string_view experimentUserInfoKey = "experiment";
inline constexpr std::string_view monetizationUserInfoKey = "monetization";
inline constexpr std::string_view isBaselineKey = "is_baseline";
inline constexpr std::string_view isFreeKey = "is_free";

}  // namespace kite::UserInfoKeys
