#include "Host/Reads.h"

namespace kite::tool {
namespace {

JSONValue timestamp(std::optional<double> seconds) {
  return seconds ? JSONValue(*seconds) : JSONValue();
}

}  // namespace

const std::vector<Read>& reads() {
  static const std::vector<Read> table{
      {"sessionData", [](auto& kite) { return toJSONObject(kite.sessionDataKiteValue()); }},
      {"userInfo", [](auto& kite) { return toJSONObject(kite.userInfoKiteValue()); }},
      {"firstInstallTimestamp", [](auto& kite) { return timestamp(kite.firstInstallTimestamp()); }},
      {"keychainId", [](auto& kite) { return kite.keychainId(); }},
      {"userDefaultsId", [](auto& kite) { return kite.userDefaultsId(); }},
      {"currentSessionId", [](auto& kite) { return kite.currentSessionId().text(); }},
      {"currentProcessId", [](auto& kite) { return kite.currentProcessId().text(); }},
      {"installedBeforeKite", [](auto& kite) { return kite.installedBeforeKite(); }},
  };
  return table;
}

}  // namespace kite::tool
