#include "Install/InstallManager.h"

namespace kite {

JSONValue JSONCoding<StoredInformations>::encode(const StoredInformations& informations) {
  JSONValue::Object members;
  const auto put = [&members](const char* key, const auto& value) {
    if (value) members.insertOrAssign(key, *value);
  };
  put("appVersion", informations.appVersion);
  put("bundleVersion", informations.bundleVersion);
  put("firstInstallTimestamp", informations.firstInstallTimestamp);
  put("installedBeforeKite", informations.installedBeforeKite);
  return members;
}

std::optional<StoredInformations> JSONCoding<StoredInformations>::decode(const JSONValue& json) {
  RecordReader reader(json);
  return reader.whole(
      StoredInformations{.firstInstallTimestamp = reader.optional<double>("firstInstallTimestamp"),
                         .installedBeforeKite = reader.optional<bool>("installedBeforeKite"),
                         .appVersion = reader.optional<std::string>("appVersion"),
                         .bundleVersion = reader.optional<std::string>("bundleVersion")});
}

}  // namespace kite
