#include "Core/LegacyInstallRecord.h"

namespace kite {
namespace {

std::optional<std::string> asText(const DynamicValue* object) {
  return object && object->string() ? std::optional(*object->string()) : std::nullopt;
}

std::optional<double> asNumber(const DynamicValue* object) {
  if (object && object->integer()) return static_cast<double>(*object->integer());
  return object && object->real() ? std::optional(*object->real()) : std::nullopt;
}

std::optional<bool> asFlag(const DynamicValue* object) {
  if (object && object->boolean()) return *object->boolean();
  const auto* number = object ? object->integer() : nullptr;
  return number && (*number == 0 || *number == 1) ? std::optional(*number == 1) : std::nullopt;
}

}  // namespace

StoredInformations fromLegacyRecord(const DynamicValue::Dictionary& legacy) {
  return {.firstInstallTimestamp = asNumber(valueFor(legacy, "Install-Timestamp")),
          .installedBeforeKite = asFlag(valueFor(legacy, "Installed-Before-Kite")),
          .appVersion = asText(valueFor(legacy, "Last-App-Version")),
          .bundleVersion = std::nullopt};
}

}  // namespace kite
