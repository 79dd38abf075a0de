#include "Install/LegacyInstallRecord.h"

namespace kite {
namespace {

/// The contents that `contents` finds in the entry under `key`.
template <class T>
std::optional<T> entry(const DynamicValue::Dictionary& legacy, std::string_view key,
                       const T* (DynamicValue::*contents)() const) {
  const auto* object = valueFor(legacy, key);
  const auto* value = object ? (object->*contents)() : nullptr;
  return value ? std::optional<T>(*value) : std::nullopt;
}

}  // namespace

StoredInformations fromLegacyRecord(const DynamicValue::Dictionary& legacy) {
  return {.firstInstallTimestamp = entry(legacy, "Install-Timestamp", &DynamicValue::real),
          .installedBeforeKite = entry(legacy, "Installed-Before-Kite", &DynamicValue::boolean),
          .appVersion = entry(legacy, "Last-App-Version", &DynamicValue::string),
          .bundleVersion = std::nullopt};
}

}  // namespace kite
