#pragma once

#include <array>
#include <optional>
#include <string_view>

namespace kite {

/// User actions that are allowed whatever the user's consents.
enum class TechnicalEvents { privacySettingsUpdated, asaAttribution };

inline constexpr std::array allTechnicalEvents{TechnicalEvents::privacySettingsUpdated,
                                               TechnicalEvents::asaAttribution};

std::string_view rawValue(TechnicalEvents event);
/// Exact, case-sensitive match.
std::optional<TechnicalEvents> technicalEvent(std::string_view rawValue);

}  // namespace kite
