#include "Events/TechnicalEvents.h"

#include <algorithm>

namespace kite {

std::string_view rawValue(TechnicalEvents event) {
  switch (event) {
    case TechnicalEvents::privacySettingsUpdated:
      return "privacy_settings_updated";
    case TechnicalEvents::asaAttribution:
      return "asa_attribution";
  }
  return {};
}

std::optional<TechnicalEvents> technicalEvent(std::string_view text) {
  const auto* found = std::ranges::find(allTechnicalEvents, text, rawValue);
  return found != allTechnicalEvents.end() ? std::optional(*found) : std::nullopt;
}

}  // namespace kite
