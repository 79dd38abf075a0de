#pragma once

#include <Kite/Base/Date.h>
#include <Kite/JSONValue.h>
#include <Kite/Platform/Device.h>
#include <Kite/Platform/Locale.h>

#include <optional>
#include <string>

namespace kite {

/// What the user info says of the application and the device at every start.
struct StartupUserInfoArguments {
  const Locale& locale;
  const std::string& appVersion;
  const std::string& bundleVersion;
  const TimeZone& timeZone;
  const Device& device;
  const std::optional<std::string>& libraryShortVersion;
  Date now;
};

JSONValue::Object startupUserInfo(const StartupUserInfoArguments& arguments);

}  // namespace kite
