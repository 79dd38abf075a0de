#include "Events/TechnicalEvents.h"

#include <algorithm>
#include <cstddef>

namespace kite {

std::string_view rawValue(TechnicalEvents event) {
  constexpr std::array<std::string_view, allTechnicalEvents.size()> texts{
      "privacy_settings_updated", "asa_attribution"};
  return texts.at(static_cast<std::size_t>(event));
}

std::optional<TechnicalEvents> technicalEvent(std::string_view text) {
  const auto* found = std::ranges::find(allTechnicalEvents, text, rawValue);
  return found != allTechnicalEvents.end() ? std::optional(*found) : std::nullopt;
}

}  // namespace kite
